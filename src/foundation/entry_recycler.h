// Per-thread spare list elements for the entry lists that decoders fill: a response's
// entries, a request's entries, extensions. When such a list is destroyed its elements, with
// the records they own, are kept on the thread (up to kMaxHeld of each type) instead of
// freed; a decoder on the same thread then takes one, and overwrites every field of it, in
// place of building a new element. The list nodes, which the exported std::list allocates
// with the standard allocator, are reused that way too.
//
// A type opts in by specialising RecyclesEntries before its CDllList is instantiated.
#ifndef VELMOR_SRC_FOUNDATION_ENTRY_RECYCLER_H
#define VELMOR_SRC_FOUNDATION_ENTRY_RECYCLER_H

#include <cstddef>
#include <iterator>
#include <list>
#include <type_traits>

namespace Velmor::Detail {

template <class T> struct RecyclesEntries : std::false_type {};

template <class T> class EntryRecycler {
  public:
    // At most this many spare elements of T per thread.
    static constexpr std::size_t kMaxHeld = 10000;

    // Moves as many of items' elements as there is room for into the thread's spares; the
    // others stay in items (and are destroyed with it). They go to the front, where TakeOne
    // takes from: the spares are used last in, first out, so the elements reused are the ones
    // most recently in the cache.
    static void Keep(std::list<T>& items) noexcept {
        if (closed() || items.empty()) {
            return;
        }
        std::list<T>& spares = held().items;
        const std::size_t room = kMaxHeld - spares.size();
        if (room >= items.size()) {
            spares.splice(spares.begin(), items);
        } else if (room != 0) {
            auto last = items.begin();
            std::advance(last, static_cast<std::ptrdiff_t>(room));
            spares.splice(spares.begin(), items, items.begin(), last);
        }
    }

    // Moves one spare element to the end of to; false when the thread has none.
    static bool TakeOne(std::list<T>& to) noexcept {
        if (closed()) {
            return false;
        }
        std::list<T>& spares = held().items;
        if (spares.empty()) {
            return false;
        }
        to.splice(to.end(), spares, spares.begin());
        return true;
    }

  private:
    struct Held {
        std::list<T> items;
        Held() noexcept = default;
        Held(const Held&) = delete;
        Held& operator=(const Held&) = delete;
        // Lists destroyed after this (other thread-local or static objects) free their
        // elements themselves.
        ~Held() { closed() = true; }
    };
    static Held& held() noexcept {
        thread_local Held spares;
        return spares;
    }
    static bool& closed() noexcept {
        thread_local bool isClosed = false;
        return isClosed;
    }
};

} // namespace Velmor::Detail

#endif
