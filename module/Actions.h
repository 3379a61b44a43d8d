#pragma once

/// The actions of method "notify". Literals, so that the list that the parameter check reads is made of them.
#define KIVO_ACTION_LOAD "load"
#define KIVO_ACTION_APPLY "apply"
#define KIVO_ACTION_CATEGORIES "loadHaveNtAppList"

namespace KIVO::NEXNotify {

/// All of them, as a JSON array.
inline constexpr char kActions[] =
    "[\"" KIVO_ACTION_LOAD "\", \"" KIVO_ACTION_APPLY "\", \"" KIVO_ACTION_CATEGORIES "\"]";

}  // namespace KIVO::NEXNotify
