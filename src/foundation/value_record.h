// The private record behind an exported value class: every such class holds one owning
// pointer, m_data, to a record of type C::Data, and writes its special members with these
// helpers. The library's converters reach the record through the same seam.
//
// A record derives from PooledRecord, so that records made and freed on one thread recycle
// their blocks (see record_pool.h).
//
// One exception guarantee for all of them: a copy is complete before the old record is
// freed, so a copy that fails (std::bad_alloc) leaves the target as it was.
#ifndef VELMOR_SRC_FOUNDATION_VALUE_RECORD_H
#define VELMOR_SRC_FOUNDATION_VALUE_RECORD_H

#include "foundation/record_pool.h"

#include <memory>
#include <pki/ocsp/config.h>
#include <utility>

namespace Velmor::Detail {

struct Records {
    // The record type of class C (named inside a member, where the friendship applies).
    template <class C> struct RecordOf { using type = typename C::Data; };
    template <class C> using Record = typename RecordOf<C>::type;

    template <class C> static Record<C>& Of(C& object) noexcept { return *object.m_data; }
    template <class C> static const Record<C>& Of(const C& object) noexcept {
        return *object.m_data;
    }

    // A new record for a constructor: default, or built from args.
    template <class C, class... Args> static void Make(C& object, Args&&... args) {
        object.m_data = new Record<C>(std::forward<Args>(args)...);
    }

    // Copy assignment: nothing on self-assignment; otherwise the copy, then the old record
    // freed.
    template <class C> static void Assign(C& to, const C& from) {
        if (to.m_data != from.m_data) {
            Replace(to, std::make_unique<Record<C>>(*from.m_data));
        }
    }

    // Puts a complete record in place of the old one, which is freed.
    template <class C> static void Replace(C& object, std::unique_ptr<Record<C>> fresh) noexcept {
        delete object.m_data;
        object.m_data = fresh.release();
    }

    // Frees the record (the destructor and the class's clear()).
    template <class C> static void Destroy(C& object) noexcept {
        delete object.m_data;
        object.m_data = nullptr;
    }
};

// Frees an object made by PoolNew.
template <class T> struct PoolDeleter {
    void operator()(T* object) const noexcept { PoolDelete(object); }
};

// An optional field of a record (extensions, a requestor name): null when absent, the value
// in a pool block, so that decoding one costs no allocation once the thread has freed one.
template <class T> using Owned = std::unique_ptr<T, PoolDeleter<T>>;

template <class T, class... Args> Owned<T> MakeOwned(Args&&... args) {
    return Owned<T>(PoolNew<T>(std::forward<Args>(args)...));
}

// An owned copy of an optional field: null stays null.
template <class T> std::unique_ptr<T> CopyOf(const T* value) {
    return value != nullptr ? std::make_unique<T>(*value) : nullptr;
}

// The same for a field held as Owned.
template <class T> Owned<T> OwnedCopyOf(const T* value) {
    return value != nullptr ? MakeOwned<T>(*value) : nullptr;
}

} // namespace Velmor::Detail

#endif
