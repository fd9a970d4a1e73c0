// Ownership of aligned numeric arrays: smart_ptr (single owner, fixed
// block), DSP::SimpleVector (growable, no element construction) with its
// allocator, and the one exception of the signal code.
//
// Failures: smart_ptr throws qs_exception("Smart Pointer Malloc Error"),
// DSP::SimpleVector throws std::bad_alloc. Neither locks; an object belongs
// to one thread at a time.
#pragma once

#include <cstddef>
#include <cstring>
#include <exception>
#include <new>
#include <string>

#include "ippcore.h"
#include "ipps.h"

class qs_exception : public std::exception {
public:
    qs_exception() = default;
    explicit qs_exception(const char* m) : msg(m ? m : "") {}
    explicit qs_exception(const std::string& m) : msg(m) {}
    qs_exception(const qs_exception& other) = default;
    ~qs_exception() override = default;

    const char* what() const noexcept override { return msg.c_str(); }

    std::string msg;
};

// Single owner of an ippMalloc block. It can't be copied, and it can't be
// put on the heap or have its address taken: it lives as a member or a
// local, so its lifetime is its owner's.
template <typename T>
class smart_ptr {
public:
    smart_ptr() = default;
    explicit smart_ptr(int n) { malloc(n); }
    ~smart_ptr() { free(); }

    // n elements, contents undefined. n = 0 keeps the old block.
    void malloc(int n) {
        if (n == 0) return;
        free();
        void* p = nullptr;
        if (n > 0 && size_t(n) <= size_t(INT32_MAX) / sizeof(T)) p = ippMalloc(int(size_t(n) * sizeof(T)));
        if (!p) throw qs_exception("Smart Pointer Malloc Error");
        ptr = static_cast<T*>(p);
    }

    void free() {
        if (ptr) ippsFree(ptr);
        ptr = nullptr;
    }

    operator T*() { return ptr; }
    operator const T*() const { return ptr; }
    T& operator[](int i) { return ptr[i]; }
    const T& operator[](int i) const { return ptr[i]; }

    T* ptr = nullptr;

private:
    smart_ptr(const smart_ptr&);
    smart_ptr& operator=(const smart_ptr&);
    smart_ptr* operator&();
    static void* operator new(size_t);
    static void* operator new[](size_t);
    static void operator delete(void*);
    static void operator delete[](void*);
};

namespace DSP {

template <typename T>
class aligned_allocator {
public:
    typedef T value_type;
    typedef T* pointer;
    typedef const T* const_pointer;
    typedef T& reference;
    typedef const T& const_reference;
    typedef size_t size_type;
    typedef ptrdiff_t difference_type;

    template <typename U>
    struct rebind {
        typedef aligned_allocator<U> other;
    };

    aligned_allocator() = default;
    template <typename U>
    aligned_allocator(const aligned_allocator<U>&) {}

    pointer address(reference r) const { return &r; }
    const_pointer address(const_reference r) const { return &r; }

    pointer allocate(size_type n, const_pointer = nullptr) {
        if (n == 0) return nullptr;
        if (n > size_type(INT32_MAX) / sizeof(T)) throw std::bad_alloc();
        void* p = ippMalloc(int(n * sizeof(T)));
        if (!p) throw std::bad_alloc();
        return static_cast<pointer>(p);
    }
    void deallocate(pointer p, size_type) { ippFree(p); }

    void construct(pointer p, const T& v) { new (static_cast<void*>(p)) T(v); }
    void destroy(pointer p) { p->~T(); }

    bool operator==(const aligned_allocator&) const { return true; }
    bool operator!=(const aligned_allocator&) const { return false; }
};

// Growable array of plain numeric elements. capacity is the element count:
// there is no separate length. The allocator is stateless and made where
// it is used, so the object is just the two fields.
template <typename T, typename Alloc = aligned_allocator<T>>
class SimpleVector {
public:
    typedef typename Alloc::pointer Pointer;

    SimpleVector() = default;
    explicit SimpleVector(size_t n) { resize(n); }
    SimpleVector(const SimpleVector& other) { assign(other); }
    SimpleVector& operator=(const SimpleVector& other) {
        if (this != &other) assign(other);
        return *this;
    }
    ~SimpleVector() { release(); }

    size_t size() const { return capacity; }
    T* data() { return mem; }
    const T* data() const { return mem; }
    T& operator[](size_t i) { return mem[i]; }
    const T& operator[](size_t i) const { return mem[i]; }

    // Always a new array (also for the same size); min(old, n) elements
    // carry over. n = 0 releases everything.
    void resize(size_t n) {
        if (n == 0) {
            release();
            return;
        }
        Pointer fresh = Alloc().allocate(n);
        if (mem) std::memcpy(static_cast<void*>(fresh), static_cast<const void*>(mem), (n < capacity ? n : capacity) * sizeof(T));
        release();
        mem = fresh;
        capacity = n;
    }

    void resize_and_zero(size_t n) {
        resize(n);
        zero();
    }

    void zero() {
        if (mem) std::memset(static_cast<void*>(mem), 0, capacity * sizeof(T));
    }

    Pointer mem = nullptr;
    size_t capacity = 0;

private:
    void assign(const SimpleVector& other) {
        if (other.capacity == 0) {
            release();
            return;
        }
        Pointer fresh = Alloc().allocate(other.capacity);
        std::memcpy(static_cast<void*>(fresh), static_cast<const void*>(other.mem), other.capacity * sizeof(T));
        release();
        mem = fresh;
        capacity = other.capacity;
    }

    void release() {
        if (mem) Alloc().deallocate(mem, capacity);
        mem = nullptr;
        capacity = 0;
    }
};

// Type holder: DSP::Vector<T>::Type is the aligned SimpleVector of T.
template <typename T>
class Vector {
public:
    typedef SimpleVector<T, aligned_allocator<T>> Type;

private:
    Vector();
    Vector(const Vector&);
};

}  // namespace DSP
