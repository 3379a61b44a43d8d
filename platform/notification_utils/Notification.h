#pragma once

#include <json/value.h>

#include <map>
#include <string>
#include <vector>

#include "platform/kivocore/Users.h"

/// A notification that is to be stored.
struct Notification {
    /// By name; at least one.
    std::map<std::string, KIVO::Appliance::User> recipients;
    std::string tag;
    /// The values, all of them texts, that fill the placeholders of the tag's texts.
    Json::Value parameters;
};

/// The notification that the words ask for: a user or, with an '@' in front, a group, then the tag, then the
/// parameters, each "NAME=VALUE". Throws std::runtime_error with one sentence when there is no such recipient
/// or tag, or a parameter is none.
Notification ReadNotification(const std::vector<std::string>& words);

/// Stores it, as of now: one message, to which each recipient is linked. Waits some seconds for a database
/// that another has locked. Throws std::runtime_error with one sentence when it cannot; nothing is stored
/// then.
void StoreNotification(const Notification& notification);

/// Writes to standard output what the page will show of it, in the language of each recipient. Throws
/// std::runtime_error, after that, with one sentence that names each placeholder without a value, each
/// value without a placeholder and each language without a text.
void ShowNotification(const Notification& notification);
