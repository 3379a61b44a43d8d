#pragma once

#include <cstddef>
#include <cstdio>

#include "kivocore/Export.h"

/// The texts of one notification tag, as a lookup filled them in. Each is null when the catalogue does not
/// give it. They belong to the record and are valid until its next lookup or its release. A record is for one
/// thread at a time. Being short of memory while a catalogue is parsed may end the process.
struct NString {
    void* reserved0[3];
    const char* category;
    const char* level;
    void* reserved1;
    const char* messageText;
    const char* altMessageText;
    const char* mailText;
};
static_assert(offsetof(NString, category) == 24 && offsetof(NString, level) == 32);
static_assert(offsetof(NString, messageText) == 48 && offsetof(NString, altMessageText) == 56);
static_assert(offsetof(NString, mailText) == 64 && sizeof(NString) == 72);

extern "C" {

/// A new, empty record, or null when memory is short. The caller releases it with KIVONotifyStringFree.
[[nodiscard]] KIVO_PUBLIC NString* KIVONotifyStringNew(void);

/// Releases the record.
KIVO_PUBLIC void KIVONotifyStringFree(NString* record);

/// Looks the tag up in the catalogue open for reading and fills the record, wherever the file's position
/// stands; the position is the end afterwards. Further lookups with the record find the catalogue of the
/// first, until the position is moved. When the stream is closed the record keeps its texts, but is not to
/// look in another stream. 0 when found; otherwise the record is empty afterwards.
[[nodiscard]] KIVO_PUBLIC int KIVONotifyStringGetByFp(FILE* file, const char* tag, NString* record);

/// The same lookup in the catalogue at the path. `flag` is reserved and 1.
[[nodiscard]] KIVO_PUBLIC int KIVONotifyStringGetByPath(const char* path, const char* tag, NString* record,
                                                        int flag);

}  // extern "C"
