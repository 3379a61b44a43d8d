#pragma once

#include <string>
#include <vector>

/// Stores one notification of the tag for the user, as of now, with the parameters, each "NAME=VALUE", that
/// fill the placeholders of the tag's texts. Throws std::runtime_error with one sentence when it cannot;
/// nothing is stored then.
void StoreNotification(const std::string& userName, const std::string& tag,
                       const std::vector<std::string>& parameters);
