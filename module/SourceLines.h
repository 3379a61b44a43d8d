#pragma once

// The line numbers that clients and log readers know the module's failures by: the "line" of an error object
// and the line of some log lines. They name the failure and stay as they are wherever the code moves.

namespace KIVO::NEXNotify::SourceLines {

inline constexpr int kFatalError = 80;
inline constexpr int kParametersNotConverted = 83;
inline constexpr int kRunLoadAsRoot = 95;
inline constexpr int kRunApplyAsRoot = 99;
inline constexpr int kUnknownAction = 106;
inline constexpr int kGenerateCategoryFileAsRoot = 427;
inline constexpr int kCategoryFileNotFound = 432;
inline constexpr int kCategoryFileNotParsed = 485;

}  // namespace KIVO::NEXNotify::SourceLines
