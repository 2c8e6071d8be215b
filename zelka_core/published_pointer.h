#pragma once

#include <atomic>

namespace ZelkaCore {

// A pointer that one thread sets when the object is complete, and that others may read meanwhile.
template <typename T>
class PublishedPointer {
  public:
    PublishedPointer() = default;
    PublishedPointer(const PublishedPointer&) = delete;
    PublishedPointer& operator=(const PublishedPointer&) = delete;
    ~PublishedPointer() = default;

    PublishedPointer& operator=(T* object) {
        m_pointer.store(object, std::memory_order_release);
        return *this;
    }
    [[nodiscard]] T* Get() const { return m_pointer.load(std::memory_order_acquire); }
    T* operator->() const { return Get(); }
    T& operator*() const { return *Get(); }
    T* Take() { return m_pointer.exchange(nullptr); }

  private:
    std::atomic<T*> m_pointer = nullptr;
};

}  // namespace ZelkaCore
