#pragma once

#include <string>

/// Writes the category file of a language: every tag of the language's catalogue, in its order, with the
/// category and the application that the catalogue gives. Readers find the earlier file or the whole new one
/// at any time. Throws std::runtime_error with one sentence when it cannot; nothing has changed then.
void GenerateCategoryFile(const std::string& language);
