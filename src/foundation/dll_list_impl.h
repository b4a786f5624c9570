// Member definitions of Velmor::CDllList<T>. A library source that owns an element type
// includes this header and explicitly instantiates the list for it:
//
//     template class CDllList<X>;
//
// The public header that declares X's list carries the matching
//
//     extern template class VELMOR_OCSP_API CDllList<X>;
//
// and that declaration's attribute is what exports the members (GCC ignores, and warns about,
// an attribute repeated on the definition that follows it).
#ifndef VELMOR_SRC_FOUNDATION_DLL_LIST_IMPL_H
#define VELMOR_SRC_FOUNDATION_DLL_LIST_IMPL_H

#include "foundation/entry_recycler.h"
#include "foundation/record_pool.h"
#include <cstdint>
#include <limits>
#include <list>

#include <pki/ocsp/dll_list.h>
#include <stdexcept>
#include <utility>

namespace Velmor::detail {

// Passes a misuse report to the installed invalid-parameter handler. Returns only by an
// exception thrown from a custom handler; otherwise the process aborts.
[[noreturn]] void ReportInvalidParameter(const char* expression, const char* function,
                                         const char* file, unsigned line);

template <class T> std::list<T>& AsList(void* impl) { return *static_cast<std::list<T>*>(impl); }

template <class T> const std::list<T>& AsList(const void* impl) {
    return *static_cast<const std::list<T>*>(impl);
}

// Whether pos is one of the positions of items, end() included. Linear in the distance of pos
// from the front, except for end(), which is found at once.
template <class List, class Iterator> bool HoldsPosition(List& items, Iterator pos) {
    if (pos == items.end()) {
        return true;
    }
    for (auto it = items.begin(); it != items.end(); ++it) {
        if (it == pos) {
            return true;
        }
    }
    return false;
}

// Whether [first, last) is a range of items: both are positions of items and first does not
// come after last.
template <class List, class Iterator> bool HoldsRange(List& items, Iterator first, Iterator last) {
    bool seenFirst = false;
    for (auto it = items.begin();; ++it) {
        seenFirst = seenFirst || it == first;
        if (it == last) {
            return seenFirst;
        }
        if (it == items.end()) {
            return false;
        }
    }
}

// The largest element count of a CDllList<T>.
template <class T> constexpr std::uint64_t MaxCount() {
    return std::numeric_limits<std::uint64_t>::max() / sizeof(T);
}

// Throws std::length_error unless `count` more elements fit into a list of T that holds
// `current` elements.
template <class T> void RequireRoom(std::uint64_t current, std::uint64_t count) {
    if (MaxCount<T>() - current < count) {
        throw std::length_error("list<T> too long");
    }
}

} // namespace Velmor::detail

// Reports `condition` through the invalid-parameter handler when it does not hold.
#define VELMOR_LIST_REQUIRE(condition)                                                             \
    do {                                                                                           \
        if (!(condition)) {                                                                        \
            ::Velmor::detail::ReportInvalidParameter(#condition, __func__, __FILE__, __LINE__);    \
        }                                                                                          \
    } while (false)

namespace Velmor {

template <class T> CDllList<T>::CDllList() : m_list(Detail::PoolNew<std::list<T>>()) {}

template <class T> CDllList<T>::CDllList(const CDllList& other) : m_list(nullptr) {
    detail::RequireRoom<T>(0, other.size());
    m_list = Detail::PoolNew<std::list<T>>(detail::AsList<T>(other.impl()));
}

template <class T> CDllList<T>& CDllList<T>::operator=(const CDllList& other) {
    if (&other == this) {
        return *this;
    }
    detail::RequireRoom<T>(0, other.size());
    auto& current = detail::AsList<T>(impl());
    current.clear();
    auto* copy = Detail::PoolNew<std::list<T>>(detail::AsList<T>(other.impl()));
    Detail::PoolDelete(&current);
    m_list = copy;
    return *this;
}

template <class T> CDllList<T>::~CDllList() {
    std::list<T>& items = detail::AsList<T>(impl());
    if constexpr (Detail::RecyclesEntries<T>::value) {
        Detail::EntryRecycler<T>::Keep(items);
    }
    Detail::PoolDelete(&items);
}

template <class T> void CDllList<T>::assign(size_type n, const T& v) {
    detail::RequireRoom<T>(size(), n);
    std::list<T> replacement(n, v);
    detail::AsList<T>(impl()).swap(replacement);
}

template <class T> T& CDllList<T>::front() {
    VELMOR_LIST_REQUIRE(!empty());
    return detail::AsList<T>(impl()).front();
}

template <class T> const T& CDllList<T>::front() const {
    VELMOR_LIST_REQUIRE(!empty());
    return detail::AsList<T>(impl()).front();
}

template <class T> T& CDllList<T>::back() {
    VELMOR_LIST_REQUIRE(!empty());
    return detail::AsList<T>(impl()).back();
}

template <class T> const T& CDllList<T>::back() const {
    VELMOR_LIST_REQUIRE(!empty());
    return detail::AsList<T>(impl()).back();
}

template <class T> typename CDllList<T>::iterator CDllList<T>::begin() {
    return detail::AsList<T>(impl()).begin();
}

template <class T> typename CDllList<T>::const_iterator CDllList<T>::begin() const {
    return detail::AsList<T>(impl()).begin();
}

template <class T> typename CDllList<T>::iterator CDllList<T>::end() {
    return detail::AsList<T>(impl()).end();
}

template <class T> typename CDllList<T>::const_iterator CDllList<T>::end() const {
    return detail::AsList<T>(impl()).end();
}

template <class T> typename CDllList<T>::reverse_iterator CDllList<T>::rbegin() {
    return detail::AsList<T>(impl()).rbegin();
}

template <class T> typename CDllList<T>::const_reverse_iterator CDllList<T>::rbegin() const {
    return detail::AsList<T>(impl()).rbegin();
}

template <class T> typename CDllList<T>::reverse_iterator CDllList<T>::rend() {
    return detail::AsList<T>(impl()).rend();
}

template <class T> typename CDllList<T>::const_reverse_iterator CDllList<T>::rend() const {
    return detail::AsList<T>(impl()).rend();
}

template <class T> void CDllList<T>::clear() { detail::AsList<T>(impl()).clear(); }

template <class T> bool CDllList<T>::empty() const { return detail::AsList<T>(impl()).empty(); }

template <class T> typename CDllList<T>::iterator CDllList<T>::erase(iterator pos) {
    auto& items = detail::AsList<T>(impl());
    VELMOR_LIST_REQUIRE(pos != items.end() && detail::HoldsPosition(items, pos));
    return items.erase(pos);
}

template <class T>
typename CDllList<T>::iterator CDllList<T>::erase(iterator first, iterator last) {
    auto& items = detail::AsList<T>(impl());
    VELMOR_LIST_REQUIRE(detail::HoldsRange(items, first, last));
    return items.erase(first, last);
}

template <class T> typename CDllList<T>::iterator CDllList<T>::insert(iterator pos, const T& v) {
    auto& items = detail::AsList<T>(impl());
    VELMOR_LIST_REQUIRE(detail::HoldsPosition(items, pos));
    detail::RequireRoom<T>(size(), 1);
    return items.insert(pos, v);
}

template <class T> void CDllList<T>::insert(iterator pos, size_type n, const T& v) {
    auto& items = detail::AsList<T>(impl());
    VELMOR_LIST_REQUIRE(detail::HoldsPosition(items, pos));
    detail::RequireRoom<T>(size(), n);
    items.insert(pos, n, v);
}

template <class T> typename CDllList<T>::size_type CDllList<T>::max_size() const {
    return detail::MaxCount<T>();
}

template <class T> void CDllList<T>::push_back(const T& v) {
    detail::RequireRoom<T>(size(), 1);
    detail::AsList<T>(impl()).push_back(v);
}

template <class T> void CDllList<T>::push_front(const T& v) {
    detail::RequireRoom<T>(size(), 1);
    detail::AsList<T>(impl()).push_front(v);
}

template <class T> void CDllList<T>::pop_back() {
    VELMOR_LIST_REQUIRE(!empty());
    detail::AsList<T>(impl()).pop_back();
}

template <class T> void CDllList<T>::pop_front() {
    VELMOR_LIST_REQUIRE(!empty());
    detail::AsList<T>(impl()).pop_front();
}

template <class T> void CDllList<T>::resize(size_type n) {
    if (n > size()) {
        detail::RequireRoom<T>(size(), n - size());
    }
    detail::AsList<T>(impl()).resize(n);
}

template <class T> void CDllList<T>::resize(size_type n, T v) {
    if (n > size()) {
        detail::RequireRoom<T>(size(), n - size());
    }
    detail::AsList<T>(impl()).resize(n, v);
}

template <class T> typename CDllList<T>::size_type CDllList<T>::size() const {
    return detail::AsList<T>(impl()).size();
}

template <class T> void CDllList<T>::swap(CDllList& other) {
    detail::AsList<T>(impl()).swap(detail::AsList<T>(other.impl()));
}

template <class T> void* CDllList<T>::impl() { return m_list; }

template <class T> const void* CDllList<T>::impl() const { return m_list; }

} // namespace Velmor

#endif
