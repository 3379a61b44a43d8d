#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <limits>
#include <utility>

#include "kivocore/list.h"
#include "platform/kivocore/ErrorState.h"

namespace {

/// Room for strings, which follow it one after the other: a list of hundreds needs a few of them.
struct Texts {
    Texts* next;
    size_t size;
    size_t used;

    char* End() { return reinterpret_cast<char*>(this + 1) + used; }
};

}  // namespace

/// The head of the block; the pointers to the strings follow it.
struct alignas(char*) KLIBCSzList {
    int size;
    int capacity;
    Texts* texts;

    const char** Items() { return reinterpret_cast<const char**>(this + 1); }
    const char* const* Items() const { return reinterpret_cast<const char* const*>(this + 1); }
};

namespace {

/// The list in a block with room for `capacity` strings, or null, the list as before, when memory is short.
KLIBCSzList* Reserve(KLIBCSzList* list, int capacity) {
    const std::size_t size = sizeof(KLIBCSzList) + static_cast<std::size_t>(capacity) * sizeof(char*);
    auto* grown = static_cast<KLIBCSzList*>(realloc(list, size));
    if (grown != nullptr) {
        grown->capacity = capacity;
    }
    return grown;
}

bool Grow(KLIBCSzList** list) {
    constexpr int kLargest = std::numeric_limits<int>::max();
    const int capacity = (*list)->capacity;
    if (capacity == kLargest) {
        return false;
    }
    KLIBCSzList* grown = Reserve(*list, capacity > kLargest / 2 ? kLargest : std::max(2 * capacity, 16));
    if (grown == nullptr) {
        return false;
    }
    *list = grown;
    return true;
}

/// A copy of the text in the list's room, or null when memory is short.
const char* Keep(KLIBCSzList& list, const char* text) {
    constexpr size_t kRoom = 16000;
    const size_t size = strlen(text) + 1;
    if (list.texts == nullptr || list.texts->size - list.texts->used < size) {
        const size_t room = std::max(size, kRoom);
        auto* texts = static_cast<Texts*>(malloc(sizeof(Texts) + room));
        if (texts == nullptr) {
            return nullptr;
        }
        *texts = {list.texts, room, 0};
        list.texts = texts;
    }
    char* copy = list.texts->End();
    memcpy(copy, text, size);
    list.texts->used += size;
    return copy;
}

}  // namespace

KLIBCSzList* KLIBCSzListAlloc(int capacity) {
    if (capacity < 0) {
        SET_LAST_ERROR(BadParameter);
        return nullptr;
    }
    KLIBCSzList* list = Reserve(nullptr, capacity);
    if (list == nullptr) {
        SET_LAST_ERROR(OutOfMemory);
        return nullptr;
    }
    list->size = 0;
    list->texts = nullptr;
    return list;
}

int KLIBCSzListPush(KLIBCSzList** list, const char* text) {
    if (list == nullptr || *list == nullptr || text == nullptr) {
        SET_LAST_ERROR(BadParameter);
        return -1;
    }
    if ((*list)->size == (*list)->capacity && !Grow(list)) {
        SET_LAST_ERROR(OutOfMemory);
        return -1;
    }
    const char* copy = Keep(**list, text);
    if (copy == nullptr) {
        SET_LAST_ERROR(OutOfMemory);
        return -1;
    }
    (*list)->Items()[(*list)->size++] = copy;
    return 0;
}

int KLIBCSzListSize(const KLIBCSzList* list) { return list != nullptr ? list->size : 0; }

const char* KLIBCSzListGet(const KLIBCSzList* list, int index) {
    return index >= 0 && index < KLIBCSzListSize(list) ? list->Items()[index] : nullptr;
}

int KLIBCSzListFind(const KLIBCSzList* list, const char* text) {
    for (int index = 0; text != nullptr && index < KLIBCSzListSize(list); ++index) {
        if (strcmp(list->Items()[index], text) == 0) {
            return index;
        }
    }
    return -1;
}

void KLIBCSzListFree(KLIBCSzList* list) {
    while (list != nullptr && list->texts != nullptr) {
        free(std::exchange(list->texts, list->texts->next));
    }
    free(list);
}
