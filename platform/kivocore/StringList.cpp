#include <climits>
#include <cstddef>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "kivocore/list.h"
#include "platform/kivocore/ErrorState.h"

/// The strings stand side by side, each ended by a NUL byte: a list is filled and released in each request,
/// and hundreds of allocations would be most of what that costs.
struct KLIBCSzList {
    std::string texts;
    std::vector<std::size_t> starts;
};

KLIBCSzList* KLIBCSzListAlloc(int capacity) try {
    if (capacity < 0) {
        SET_LAST_ERROR(BadParameter);
        return nullptr;
    }
    auto list = std::make_unique<KLIBCSzList>();
    list->starts.reserve(static_cast<std::size_t>(capacity));
    return list.release();
} catch (...) {
    SET_LAST_ERROR(OutOfMemory);
    return nullptr;
}

int KLIBCSzListPush(KLIBCSzList** list, const char* text) {
    if (list == nullptr || *list == nullptr || text == nullptr || (*list)->starts.size() == INT_MAX) {
        SET_LAST_ERROR(BadParameter);
        return -1;
    }
    auto& [texts, starts] = **list;
    const std::size_t start = texts.size();
    try {
        texts.append(text, std::strlen(text) + 1);
        starts.push_back(start);
        return 0;
    } catch (...) {
        texts.resize(start);
        SET_LAST_ERROR(OutOfMemory);
        return -1;
    }
}

int KLIBCSzListSize(const KLIBCSzList* list) {
    return list != nullptr ? static_cast<int>(list->starts.size()) : 0;
}

const char* KLIBCSzListGet(const KLIBCSzList* list, int index) {
    return index >= 0 && index < KLIBCSzListSize(list)
               ? &list->texts[list->starts[static_cast<std::size_t>(index)]]
               : nullptr;
}

int KLIBCSzListFind(const KLIBCSzList* list, const char* text) {
    for (int index = 0; text != nullptr && index < KLIBCSzListSize(list); ++index) {
        if (std::strcmp(KLIBCSzListGet(list, index), text) == 0) {
            return index;
        }
    }
    return -1;
}

void KLIBCSzListFree(KLIBCSzList* list) { delete list; }
