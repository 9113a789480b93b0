// A growing array of plain values whose memory can be handed on. Nothing is written to elements that were only made
// room for, so room for too many costs nothing.
#pragma once

#include <algorithm>
#include <cstddef>
#include <new>
#include <span>
#include <type_traits>
#include <utility>

#include "host/column/memory.h"

namespace host {

template <class T>
class block {
    static_assert(std::is_trivially_copyable_v<T>);

public:
    block() = default;
    explicit block(std::size_t size) { resize(size); }
    block(block &&other) noexcept
        : data_(std::exchange(other.data_, nullptr)), size_(std::exchange(other.size_, 0)),
          room_bytes_(std::exchange(other.room_bytes_, 0)) {}
    block &operator=(block &&other) noexcept {
        std::swap(data_, other.data_);
        std::swap(size_, other.size_);
        std::swap(room_bytes_, other.room_bytes_);
        return *this;
    }
    ~block() { release_memory(data_, room_bytes_); }

    T *data() { return data_; }
    const T *data() const { return data_; }
    std::size_t size() const { return size_; }
    bool empty() const { return size_ == 0; }
    T &operator[](std::size_t i) { return data_[i]; }
    const T &operator[](std::size_t i) const { return data_[i]; }
    T *begin() { return data_; }
    T *end() { return data_ + size_; }
    const T *begin() const { return data_; }
    const T *end() const { return data_ + size_; }
    operator std::span<const T>() const { return {data_, size_}; }

    // New elements hold anything.
    void resize(std::size_t size) {
        reserve(size);
        size_ = size;
    }
    // By so many elements, with room for more behind them.
    void extend(std::size_t elements) {
        if (size_ + elements > room())
            grow(size_ + elements);
        size_ += elements;
    }
    void reserve(std::size_t size) {
        if (size > room())
            take_room(size);
    }
    void push_back(T value) {
        if (size_ == room())
            grow(size_ + 1);
        data_[size_++] = value;
    }
    void append(const T *values, std::size_t n) {
        if (n == 0)
            return;
        if (size_ + n > room())
            grow(size_ + n);
        std::copy_n(values, n, data_ + size_);
        size_ += n;
    }
    // Gives back the room behind the last element.
    void shrink() {
        if (size_ < room() && size_ > 0)
            take_room(size_);
    }
    void clear() { *this = block(); }
    // The same memory as elements of another type, as many as the bytes of these make.
    template <class To>
    block<To> as() && {
        block<To> other;
        other.size_ = std::exchange(size_, 0) * sizeof(T) / sizeof(To);
        other.room_bytes_ = std::exchange(room_bytes_, 0);
        other.data_ = reinterpret_cast<To *>(std::exchange(data_, nullptr));
        return other;
    }

private:
    template <class>
    friend class block;
    std::size_t room() const { return room_bytes_ / sizeof(T); }
    void grow(std::size_t size) { take_room(std::max(size, room() + room() / 2 + 16)); }
    void take_room(std::size_t room) {
        if (room > static_cast<std::size_t>(-1) / 2 / sizeof(T))
            throw std::bad_alloc();
        data_ = static_cast<T *>(resized_memory(data_, room_bytes_, room * sizeof(T)));
        room_bytes_ = room * sizeof(T);
    }

    T *data_ = nullptr;
    std::size_t size_ = 0, room_bytes_ = 0;
};

} // namespace host
