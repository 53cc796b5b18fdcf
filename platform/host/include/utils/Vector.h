#pragma once

#include <stddef.h>
#include <sys/types.h>

#include <vector>

namespace android {

// libutils' Vector, kept to the calls binder code makes (dump arguments, service lists).
template <class TYPE>
class Vector {
  public:
    typedef TYPE value_type;
    typedef typename std::vector<TYPE>::iterator iterator;
    typedef typename std::vector<TYPE>::const_iterator const_iterator;

    Vector() = default;

    size_t size() const { return mItems.size(); }
    bool isEmpty() const { return mItems.empty(); }
    size_t capacity() const { return mItems.capacity(); }
    ssize_t setCapacity(size_t size) {
        mItems.reserve(size);
        return static_cast<ssize_t>(mItems.capacity());
    }
    void clear() { mItems.clear(); }

    const TYPE& operator[](size_t index) const { return mItems[index]; }
    const TYPE& itemAt(size_t index) const { return mItems[index]; }
    TYPE& editItemAt(size_t index) { return mItems[index]; }
    const TYPE& top() const { return mItems.back(); }
    TYPE& editTop() { return mItems.back(); }
    const TYPE* array() const { return mItems.data(); }
    TYPE* editArray() { return mItems.data(); }

    // Index of the new item.
    ssize_t add(const TYPE& item) {
        mItems.push_back(item);
        return static_cast<ssize_t>(mItems.size() - 1);
    }
    ssize_t add() { return add(TYPE()); }
    void push() { mItems.emplace_back(); }
    void push(const TYPE& item) { mItems.push_back(item); }
    void push_back(const TYPE& item) { mItems.push_back(item); }
    void pop() {
        if (!mItems.empty()) mItems.pop_back();
    }
    ssize_t insertAt(const TYPE& item, size_t index, size_t numItems = 1) {
        if (index > mItems.size()) return -1;
        mItems.insert(mItems.begin() + index, numItems, item);
        return static_cast<ssize_t>(index);
    }
    ssize_t removeItemsAt(size_t index, size_t count = 1) {
        if (index + count > mItems.size() || index + count < index) return -1;
        mItems.erase(mItems.begin() + index, mItems.begin() + index + count);
        return static_cast<ssize_t>(index);
    }
    ssize_t removeAt(size_t index) { return removeItemsAt(index); }

    iterator begin() { return mItems.begin(); }
    iterator end() { return mItems.end(); }
    const_iterator begin() const { return mItems.begin(); }
    const_iterator end() const { return mItems.end(); }

  private:
    std::vector<TYPE> mItems;
};

}  // namespace android
