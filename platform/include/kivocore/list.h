#pragma once

#include "kivocore/Export.h"

/// A growing list of strings. Functions that add to a list take the address of its handle, which they may
/// replace; a string may move when another is added. A list is for one thread at a time.
struct KLIBCSzList;

extern "C" {

/// A new, empty list with room for `capacity` strings before it first grows, or null when memory is short.
/// The caller releases it with KLIBCSzListFree.
[[nodiscard]] KIVO_PUBLIC KLIBCSzList* KLIBCSzListAlloc(int capacity);

/// Appends a copy of `text`. 0, or -1 when memory is short: the list is then as before.
[[nodiscard]] KIVO_PUBLIC int KLIBCSzListPush(KLIBCSzList** list, const char* text);

/// The number of strings.
KIVO_PUBLIC int KLIBCSzListSize(const KLIBCSzList* list);

/// The string at `index`, owned by the list, or null outside 0 … size-1.
KIVO_PUBLIC const char* KLIBCSzListGet(const KLIBCSzList* list, int index);

/// The index of the first string that equals `text`, or -1.
KIVO_PUBLIC int KLIBCSzListFind(const KLIBCSzList* list, const char* text);

/// Releases the list and its strings.
KIVO_PUBLIC void KLIBCSzListFree(KLIBCSzList* list);

}  // extern "C"
