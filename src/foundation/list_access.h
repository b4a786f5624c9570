// The standard list behind a CDllList, for the library's own decoders: they build elements
// in place and move whole runs of them, which the exported list interface (copies only)
// cannot do.
#ifndef VELMOR_SRC_FOUNDATION_LIST_ACCESS_H
#define VELMOR_SRC_FOUNDATION_LIST_ACCESS_H

#include <list>
#include <pki/ocsp/dll_list.h>
#include <stdexcept>

namespace Velmor::Detail {

template <class T> std::list<T>& UnderlyingList(CDllList<T>& list) noexcept {
    // impl() is protected: a derived class may name it, and its member pointer then applies
    // to any CDllList<T>.
    struct Access : CDllList<T> {
        static void* Of(CDllList<T>& of) noexcept {
            return (of.*static_cast<void* (CDllList<T>::*)()>(&Access::impl))();
        }
    };
    return *static_cast<std::list<T>*>(Access::Of(list));
}

// Moves every element of from to the front of to, in order, without copying. Throws
// std::length_error, moving nothing, when to would pass its largest size.
template <class T> void MoveToFront(CDllList<T>& to, CDllList<T>& from) {
    if (from.size() > to.max_size() - to.size()) {
        throw std::length_error("list<T> too long");
    }
    std::list<T>& target = UnderlyingList(to);
    target.splice(target.begin(), UnderlyingList(from));
}

} // namespace Velmor::Detail

#endif
