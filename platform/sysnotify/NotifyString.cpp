#include <memory>
#include <optional>
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
    /// Holds the texts to which the fields point, also after the catalogue has changed.
    std::shared_ptr<const Catalogue> catalogue;
};

void Clear(NString* record) {
    *record = NString{};
    static_cast<OwningRecord*>(record)->catalogue.reset();
}

const char* TextOrNull(const std::optional<std::string>& text) { return text ? text->c_str() : nullptr; }

int Fill(NString* record, std::shared_ptr<const Catalogue> catalogue, const char* tag) {
    if (!catalogue) {
        SET_LAST_ERROR(FileNotReadable);
        return -1;
    }
    const auto found = catalogue->entries.find(tag);
    if (found == catalogue->entries.end()) {
        SET_LAST_ERROR(SectionNotFound);
        return -1;
    }
    const CatalogueEntry& entry = found->second;
    record->category = TextOrNull(entry.category);
    record->level = TextOrNull(entry.level);
    record->messageText = TextOrNull(entry.message);
    record->altMessageText = TextOrNull(entry.altMessage);
    record->mailText = TextOrNull(entry.mail);
    static_cast<OwningRecord*>(record)->catalogue = std::move(catalogue);
    return 0;
}

}  // namespace

NString* KIVONotifyStringNew(void) try { return new OwningRecord{}; } catch (...) {
    SET_LAST_ERROR(OutOfMemory);
    return nullptr;
}

void KIVONotifyStringFree(NString* record) { delete static_cast<OwningRecord*>(record); }

int KIVONotifyStringGetByFp(FILE* file, const char* tag, NString* record) try {
    if (record == nullptr) {
        SET_LAST_ERROR(BadParameter);
        return -1;
    }
    Clear(record);
    if (file == nullptr || tag == nullptr) {
        SET_LAST_ERROR(BadParameter);
        return -1;
    }
    return Fill(record, LoadCatalogue(fileno(file)), tag);
} catch (...) {
    SET_LAST_ERROR(OutOfMemory);
    return -1;
}

int KIVONotifyStringGetByPath(const char* path, const char* tag, NString* record, int /*flag*/) try {
    if (record == nullptr) {
        SET_LAST_ERROR(BadParameter);
        return -1;
    }
    Clear(record);
    if (path == nullptr || tag == nullptr) {
        SET_LAST_ERROR(BadParameter);
        return -1;
    }
    return Fill(record, LoadCatalogue(std::string(path)), tag);
} catch (...) {
    SET_LAST_ERROR(OutOfMemory);
    return -1;
}
