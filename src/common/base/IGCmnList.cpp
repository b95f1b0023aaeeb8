#include "common/base/IGCmnList.h"

#include <cstring>

#include "common/base/IGAssert.h"
#include "common/base/IGCmnStr.h"
#include "common/report/IGCmnMessage.h"

int IgCmnListAdd(memory_pool* memoryp, IgCmnListHeader* list, void* value) {
    IG_ASSERT_NOT_NULL(memoryp);
    IG_ASSERT_NOT_NULL(list);
    auto* node = newFromPool<IgCmnListNode>(memoryp);
    if (node == nullptr) {
        return -1;
    }
    node->value = value;
    (list->first == nullptr ? list->first : list->last->next) = node;
    list->last = node;
    return static_cast<int>(++list->count);
}

void* IgCmnListFindFirst(const IgCmnListHeader* list, IgCmnListFindHandle* handle) {
    IG_ASSERT_NOT_NULL(list);
    IG_ASSERT_NOT_NULL(handle);
    *handle = {list, list->first};
    return list->first == nullptr ? nullptr : list->first->value;
}

void* IgCmnListFindNext(IgCmnListFindHandle* handle) {
    IG_ASSERT_NOT_NULL(handle);
    if (handle->current == nullptr || handle->current->next == nullptr) {
        return nullptr;
    }
    handle->current = handle->current->next;
    return handle->current->value;
}

int IgCmnListContains(const char* text, const IgCmnListHeader* list) {
    if (text == nullptr) {
        return 0;
    }
    for (const char& element : walkStrings(list)) {
        if (std::strcmp(&element, text) == 0) {
            return 1;
        }
    }
    return 0;
}

int IgCmnListIntersects(const IgCmnListHeader* first, const IgCmnListHeader* second) {
    for (const char& element : walkStrings(first)) {
        if (IgCmnListContains(&element, second) != 0) {
            return 1;
        }
    }
    return 0;
}

void IgCmnListPrint(int message, const IgCmnListHeader* list) {
    if (list == nullptr) {
        IgCmnMsgOut(message, "");
    }
    for (const char& element : walkStrings(list)) {
        IgCmnMsgOut(message, ShownText(&element).get());
    }
}

int IgCmnListAppend(memory_pool* memoryp, IgCmnListHeader** listp, void* value) {
    IG_ASSERT_NOT_NULL(memoryp);
    IG_ASSERT_NOT_NULL(listp);
    if (*listp == nullptr) {
        auto* list = newFromPool<IgCmnListHeader>(memoryp);
        if (list == nullptr || IgCmnListAdd(memoryp, list, value) == -1) {
            return -1;
        }
        *listp = list;
        return 1;
    }
    return IgCmnListAdd(memoryp, *listp, value);
}

int makeList(const char* find_file, IgCmnListHeader** search_file_list, memory_pool* memoryp) {
    IG_ASSERT_NOT_NULL(find_file);
    IG_ASSERT_NOT_NULL(search_file_list);
    IG_ASSERT_NOT_NULL(memoryp);
    char* copy = IgCmnStrdup(memoryp, find_file);
    return copy == nullptr || IgCmnListAppend(memoryp, search_file_list, copy) == -1 ? -1 : 0;
}
