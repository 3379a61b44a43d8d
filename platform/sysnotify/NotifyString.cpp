#include <cassert>
#include <cstdio>
#include <memory>
#include <string>

#include "platform/kivocore/Catalogue.h"
#include "platform/kivocore/ErrorState.h"
#include "sysnotify/nstring.h"

namespace {

using KIVO::Appliance::Catalogue;
using KIVO::Appliance::CatalogueEntry;
using KIVO::Appliance::LoadCatalogue;

/// What KIVONotifyStringNew really makes.
struct OwningRecord : NString {
    /// The catalogue of the last lookup. Holds the texts to which the fields point, also after the file has
    /// changed.
    std::shared_ptr<const Catalogue> catalogue;
    /// The stream that it was read from, if any.
    FILE* stream = nullptr;

    void Read(const char* path) {
        stream = nullptr;
        catalogue = LoadCatalogue(std::string(path));
    }

    /// Reads the stream to its end, as far as its user can tell. So one that stands there is known to have
    /// been read, and thousands of lookups ask the system for the file's identity once.
    void Read(FILE* file) {
        if (file == stream && std::feof(file) != 0) {
            return;
        }
        stream = nullptr;
        catalogue = LoadCatalogue(fileno(file));
        if (std::fseek(file, 0, SEEK_END) == 0) {
            std::fgetc(file);
            stream = file;
        }
    }
};

/// Looks the tag up in the file or in the one at the path.
template <class Source>
[[nodiscard]] int LookUp(Source* source, const char* tag, NString* record) try {
    if (record == nullptr) {
        SET_LAST_ERROR(BadParameter);
        return -1;
    }
    *record = NString{};
    if (source == nullptr || tag == nullptr) {
        SET_LAST_ERROR(BadParameter);
        return -1;
    }
    auto& owner = *static_cast<OwningRecord*>(record);
    owner.Read(source);
    if (!owner.catalogue) {
        SET_LAST_ERROR(FileNotReadable);
        return -1;
    }
    const auto found = owner.catalogue->entries.find(tag);
    if (found == owner.catalogue->entries.end()) {
        SET_LAST_ERROR(SectionNotFound);
        return -1;
    }
    const CatalogueEntry& entry = found->second;
    record->category = entry.category;
    record->level = entry.level;
    record->messageText = entry.message;
    record->altMessageText = entry.altMessage;
    record->mailText = entry.mail;
    return 0;
} catch (...) {
    SET_LAST_ERROR(OutOfMemory);
    return -1;
}

}  // namespace

NString* KIVONotifyStringNew(void) try { return new OwningRecord{}; } catch (...) {
    SET_LAST_ERROR(OutOfMemory);
    return nullptr;
}

void KIVONotifyStringFree(NString* record) { delete static_cast<OwningRecord*>(record); }

int KIVONotifyStringGetByFp(FILE* file, const char* tag, NString* record) {
    return LookUp(file, tag, record);
}

int KIVONotifyStringGetByPath(const char* path, const char* tag, NString* record, [[maybe_unused]] int flag) {
    assert(flag == 1);
    return LookUp(path, tag, record);
}
