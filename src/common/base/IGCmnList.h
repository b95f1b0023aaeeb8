// The program's one container: a singly linked list of pointers that only grows. Lists and nodes
// live as long as their pool. A null pointer is a list without elements: its owner makes the header
// on the first insertion.
#ifndef QUENDIL_COMMON_BASE_IGCMNLIST_H
#define QUENDIL_COMMON_BASE_IGCMNLIST_H

#include <cstdint>

#include "common/base/IGCmnMemory.h"

struct IgCmnListNode {
    void* value;
    IgCmnListNode* next;  // null at the end
};

struct IgCmnListHeader {
    std::uint32_t count;
    IgCmnListNode* first;
    IgCmnListNode* last;
};

/// The position of a walk. Each caller has its own, so several walks over one list can run at once.
struct IgCmnListFindHandle {
    const IgCmnListHeader* list;
    const IgCmnListNode* current;
};

/// Appends a value and returns the new count; -1 when memory runs out, with the list unchanged. The
/// value must not be null, because null is the end of a walk. The list does not own the value. Pool
/// and list are asserted non-null.
int IgCmnListAdd(memory_pool* memoryp, IgCmnListHeader* list, void* value);
/// Begins a walk: returns the first value, null when the list is empty. Both are asserted non-null.
void* IgCmnListFindFirst(const IgCmnListHeader* list, IgCmnListFindHandle* handle);
/// Returns the next value; null at the end, and again if called after it. Asserted non-null.
void* IgCmnListFindNext(IgCmnListFindHandle* handle);

/// 1 when the list of strings has an equal one (bytes compared); 0 also when either is null.
int IgCmnListContains(const char* text, const IgCmnListHeader* list);
/// 1 when the two lists of strings have one in common; 0 also when either is null.
int IgCmnListIntersects(const IgCmnListHeader* first, const IgCmnListHeader* second);

/// Issues the message once per string of the list, in order; for a null list once, with "".
void IgCmnListPrint(int message, const IgCmnListHeader* list);

/// Appends to the list at `listp`, making its header from the pool first when it is null. Returns
/// the new count, or -1 when memory runs out.
int IgCmnListAppend(memory_pool* memoryp, IgCmnListHeader** listp, void* value);

/// Appends a copy of the string, making the list when it is null; both from the pool. Returns 0, or
/// -1 when memory runs out.
int makeList(const char* find_file, IgCmnListHeader** search_file_list, memory_pool* memoryp);

/// A typed walk: `for (const char& s : walkList<const char>(list))` iterates over the values as
/// references. A null list is empty.
template <typename T>
class ListWalk {
  public:
    explicit ListWalk(const IgCmnListHeader* list) : list_(list) {}

    class Iterator {
      public:
        Iterator() = default;
        explicit Iterator(const IgCmnListHeader* list) {
            value_ = static_cast<T*>(IgCmnListFindFirst(list, &handle_));
        }
        T& operator*() const { return *value_; }
        Iterator& operator++() {
            value_ = static_cast<T*>(IgCmnListFindNext(&handle_));
            return *this;
        }
        bool operator!=(const Iterator& other) const { return value_ != other.value_; }

      private:
        IgCmnListFindHandle handle_{};
        T* value_ = nullptr;
    };

    [[nodiscard]] Iterator begin() const { return list_ == nullptr ? end() : Iterator(list_); }
    [[nodiscard]] Iterator end() const { return Iterator(); }

  private:
    const IgCmnListHeader* list_;
};

template <typename T>
ListWalk<T> walkList(const IgCmnListHeader* list) {
    return ListWalk<T>(list);
}

/// The strings of a list; `&s` is the string.
inline ListWalk<char> walkStrings(const IgCmnListHeader* list) {
    return walkList<char>(list);
}

#endif
