// Velmor::CDllList<T>: the library's exported list template, a thin owning wrapper around a
// heap-allocated std::list<T>. No member is defined in this header: every member is compiled
// into the library and exported for each element type it instantiates, so list nodes are
// always created and destroyed by the library's own code.
#ifndef VELMOR_PKI_OCSP_DLL_LIST_H
#define VELMOR_PKI_OCSP_DLL_LIST_H

#include <cstdint>
#include <list>
#include <pki/ocsp/config.h>

namespace Velmor {

// Called when a list member is misused in a way that std::list leaves undefined (front() of an
// empty list, erase(end()), an iterator of another list). It receives the failed condition,
// the member's name and the source position. A handler may throw to unwind; if it returns,
// the process is aborted anyway.
using InvalidParameterHandler = void (*)(const char* expression, const char* function,
                                         const char* file, unsigned line);

// Installs the process-wide invalid-parameter handler and returns the previous one. Null
// restores the default handler, which prints the report to stderr and aborts; the default
// handler is reported as null.
VELMOR_OCSP_API InvalidParameterHandler
SetInvalidParameterHandler(InvalidParameterHandler h) noexcept;

// An ordered list of T held by value. The object holds one pointer to its own std::list<T>,
// created by every constructor and released by the destructor; copies are as deep as T's copy.
// Every member that adds k elements first checks max_size() - size() >= k and otherwise throws
// std::length_error("list<T> too long"), leaving the list unchanged.
template <class T> class CDllList {
  public:
    using value_type = T;
    using size_type = std::uint64_t;
    using reference = T&;
    using const_reference = const T&;
    using iterator = typename std::list<T>::iterator;
    using const_iterator = typename std::list<T>::const_iterator;
    using reverse_iterator = typename std::list<T>::reverse_iterator;
    using const_reverse_iterator = typename std::list<T>::const_reverse_iterator;

    // An empty list.
    CDllList();
    // A new list holding a copy of each element of other, in order.
    CDllList(const CDllList& other);
    // Does nothing when other is this object. Otherwise destroys the current elements, then
    // builds a new list with copies of other's elements and takes it in place of the old list
    // object (so impl() changes). If a copy throws, the list is left empty and the exception
    // propagates.
    CDllList& operator=(const CDllList& other);
    ~CDllList();

    // Makes the list hold exactly n copies of v; v may be an element of this list.
    void assign(size_type n, const T& v);

    // The first or last element; the list must not be empty.
    T& front();
    const T& front() const;
    T& back();
    const T& back() const;

    iterator begin();
    const_iterator begin() const;
    iterator end();
    const_iterator end() const;
    reverse_iterator rbegin();
    const_reverse_iterator rbegin() const;
    reverse_iterator rend();
    const_reverse_iterator rend() const;

    // Destroys every element; the list object itself stays.
    void clear();
    bool empty() const;

    // Removes the element at pos (not end()); returns the iterator that followed it.
    iterator erase(iterator pos);
    // Removes [first, last); returns last. first must not come after last.
    iterator erase(iterator first, iterator last);
    // Inserts a copy of v before pos; returns an iterator to the new element.
    iterator insert(iterator pos, const T& v);
    // Inserts n copies of v before pos.
    void insert(iterator pos, size_type n, const T& v);

    // The largest element count: the largest size_type divided by sizeof(T).
    size_type max_size() const;

    void push_back(const T& v);
    void push_front(const T& v);
    // Removes the last or first element; the list must not be empty.
    void pop_back();
    void pop_front();

    // Shrinks by removing from the back, or grows with default-constructed elements.
    void resize(size_type n);
    // The same, growing with copies of v.
    void resize(size_type n, T v);
    size_type size() const;

    // Exchanges the elements of the two lists; each object keeps its own list object, so
    // impl() of neither changes.
    void swap(CDllList& other);

  protected:
    // The underlying std::list<T>, untyped.
    void* impl();
    const void* impl() const;

  private:
    void* m_list;
};

} // namespace Velmor

#endif
