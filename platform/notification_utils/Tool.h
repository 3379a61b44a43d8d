#pragma once

/// Does what the command line asks for: generates a category file, stores or shows a notification, or removes
/// old ones. The program's exit status: 0; 1 when that failed, or 2 when the command line is wrong, after one
/// line on standard error.
[[nodiscard]] int RunTool(int argumentCount, const char* const* arguments);
