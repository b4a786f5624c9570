// Vocabulary of the BER/DER runtime: scalar types, tags, statuses, value views, lists,
// the per-buffer context with its arena, and the arena allocation and copy helpers.
//
// Internal to the library (never exported). The ASN1*, OS*, TM_*, RTERR_*, rt* and xd_*
// names are global so that the message code can use them unqualified; everything else of
// the runtime lives in namespace Velmor::Asn1Rt.
#ifndef VELMOR_SRC_ASN1_ASN1_BASE_H
#define VELMOR_SRC_ASN1_ASN1_BASE_H

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <new>
#include <type_traits>

// ---- Scalars -----------------------------------------------------------------------------

using ASN1OCTET = std::uint8_t;
using OSBOOL = bool;
using OSINT32 = std::int32_t;
using OSUINT32 = std::uint32_t;

// A tag: class in the top two bits, the constructed flag below them, the number in the low
// 29 bits. The constructed flag is part of the tag, so a SEQUENCE tag is TM_CONS | 16.
using ASN1TAG = std::uint32_t;

constexpr ASN1TAG TM_UNIV = 0x00000000u;
constexpr ASN1TAG TM_APPL = 0x40000000u;
constexpr ASN1TAG TM_CTXT = 0x80000000u;
constexpr ASN1TAG TM_PRIV = 0xC0000000u;
constexpr ASN1TAG TM_CONS = 0x20000000u;
constexpr ASN1TAG TM_CLASS_MASK = 0xC0000000u;
constexpr ASN1TAG TM_IDCODE_MASK = 0x1FFFFFFFu;

// Universal tags, with the constructed flag where DER requires it.
constexpr ASN1TAG ASN1TAG_BOOLEAN = TM_UNIV | 1;
constexpr ASN1TAG ASN1TAG_INTEGER = TM_UNIV | 2;
constexpr ASN1TAG ASN1TAG_BITSTRING = TM_UNIV | 3;
constexpr ASN1TAG ASN1TAG_OCTETSTRING = TM_UNIV | 4;
constexpr ASN1TAG ASN1TAG_NULL = TM_UNIV | 5;
constexpr ASN1TAG ASN1TAG_OBJID = TM_UNIV | 6;
constexpr ASN1TAG ASN1TAG_ENUMERATED = TM_UNIV | 10;
constexpr ASN1TAG ASN1TAG_UTF8STRING = TM_UNIV | 12;
constexpr ASN1TAG ASN1TAG_SEQUENCE = TM_UNIV | TM_CONS | 16;
constexpr ASN1TAG ASN1TAG_SET = TM_UNIV | TM_CONS | 17;
constexpr ASN1TAG ASN1TAG_PRINTABLESTRING = TM_UNIV | 19;
constexpr ASN1TAG ASN1TAG_TELETEXSTRING = TM_UNIV | 20;
constexpr ASN1TAG ASN1TAG_IA5STRING = TM_UNIV | 22;
constexpr ASN1TAG ASN1TAG_UTCTIME = TM_UNIV | 23;
constexpr ASN1TAG ASN1TAG_GENERALIZEDTIME = TM_UNIV | 24;
constexpr ASN1TAG ASN1TAG_VISIBLESTRING = TM_UNIV | 26;
constexpr ASN1TAG ASN1TAG_UNIVERSALSTRING = TM_UNIV | 28;
constexpr ASN1TAG ASN1TAG_BMPSTRING = TM_UNIV | 30;

// [n] as a primitive tag (IMPLICIT on a primitive type).
constexpr ASN1TAG asn1CtxtTag(OSUINT32 n) { return TM_CTXT | (n & TM_IDCODE_MASK); }
// [n] as a constructed tag (EXPLICIT, or IMPLICIT on a constructed type).
constexpr ASN1TAG asn1CtxtConsTag(OSUINT32 n) { return TM_CTXT | TM_CONS | (n & TM_IDCODE_MASK); }

// ---- Statuses ----------------------------------------------------------------------------

// 0 is success; failures are negative. Encoders return a non-negative length on success.
constexpr int ASN_OK = 0;
constexpr int RTERR_ENDOFBUF = -2;  // input ends inside an element
constexpr int RTERR_IDNOTFOU = -3;  // the next element does not carry the expected tag
constexpr int RTERR_BADTAG = -4;    // malformed identifier octets (high tag form)
constexpr int RTERR_INVLEN = -5;    // malformed length, or one that overruns its parent
constexpr int RTERR_BADVALUE = -6;  // malformed contents (BOOLEAN, INTEGER, OID, ...)
constexpr int RTERR_INVPARAM = -7;  // bad argument from the caller, or a misused API
constexpr int RTERR_NOMEM = -10;    // arena cap reached or the system is out of memory
constexpr int RTERR_TOODEEP = -11;  // nesting deeper than the fixed limit
constexpr int RTERR_TRAILING = -12; // bytes left after a value that must end its input

// Stored by xd_match1 in place of a length for an indefinite-length element.
constexpr int ASN_K_INDEFLEN = -9999;

// ---- Value views -------------------------------------------------------------------------
// None of these own memory: data points into the decoded input or into arena memory of
// an ASN1CTXT, and lives as long as that input or context.

// One whole encoded element: identifier, length and contents octets.
struct ASN1OpenType {
    OSUINT32 numocts = 0;
    const ASN1OCTET* data = nullptr;
};

// OCTET STRING contents (also the raw contents of a character string).
struct ASN1TDynOctStr {
    OSUINT32 numocts = 0;
    const ASN1OCTET* data = nullptr;
};

// BIT STRING: numbits bits, first bit in the high bit of data[0]; (numbits + 7) / 8 octets.
struct ASN1TDynBitStr {
    OSUINT32 numbits = 0;
    const ASN1OCTET* data = nullptr;
};

// OBJECT IDENTIFIER as its DER contents octets (validated when decoded and encoded).
struct ASN1OBJID {
    OSUINT32 numocts = 0;
    const ASN1OCTET* data = nullptr;
};

// INTEGER of any size as its contents octets: two's complement, big-endian, exactly as
// received (a redundant leading octet is kept) and written back as given.
struct ASN1TDynBigInt {
    OSUINT32 numocts = 0;
    const ASN1OCTET* data = nullptr;
};

// ---- Lists (SEQUENCE OF / SET OF) ----------------------------------------------------------

struct OSRTDListNode {
    void* data;
    OSRTDListNode* next;
    OSRTDListNode* prev;
};

struct OSRTDList {
    OSUINT32 count = 0;
    OSRTDListNode* head = nullptr;
    OSRTDListNode* tail = nullptr;
};

using ASN1TSeqOfList = OSRTDList;
using ASN1TPDUSeqOfList = OSRTDList;

// ---- Arena -------------------------------------------------------------------------------

namespace Velmor::Asn1Rt {

// Bump allocator: the first block is inline in the object, later blocks come from the heap
// and grow geometrically. Nothing is freed piecewise; release() frees everything. A cap on
// the bytes handed out bounds what one hostile input can make the library allocate.
class Arena {
  public:
    static constexpr std::size_t kInlineSize = 8192;
    static constexpr std::size_t kAlign = 16;

    explicit Arena(std::size_t cap) noexcept;
    ~Arena();
    Arena(const Arena&) = delete;
    Arena& operator=(const Arena&) = delete;

    // size bytes aligned to kAlign, or null when the cap would be passed or memory is out.
    // Taken from the current block when it has room (every element of a small message);
    // anything else goes to allocateElsewhere.
    void* allocate(std::size_t size) noexcept {
        const std::size_t rounded = (size + kAlign - 1) & ~(kAlign - 1);
        if (rounded >= size && rounded <= left_ && handedOut_ <= cap_ &&
            rounded <= cap_ - handedOut_) {
            void* p = cur_;
            cur_ += rounded;
            left_ -= rounded;
            handedOut_ += rounded;
            return p;
        }
        return allocateElsewhere(size);
    }
    // Frees every heap block and rewinds to the empty inline block; the cap is kept.
    void release() noexcept;
    // Changes the cap (bytes handed out in total, counted with alignment padding).
    void setCap(std::size_t cap) noexcept { cap_ = cap; }
    std::size_t cap() const noexcept { return cap_; }
    std::size_t handedOut() const noexcept { return handedOut_; }
    // Number of heap blocks currently held (for tests and statistics).
    std::size_t heapBlocks() const noexcept;

  private:
    struct Block;
    bool addBlock(std::size_t minSize) noexcept;
    // Out of line, so that allocate() stays small enough to inline at every call.
    [[gnu::noinline]] void* allocateElsewhere(std::size_t size) noexcept;

    alignas(kAlign) unsigned char inline_[kInlineSize];
    unsigned char* cur_;
    std::size_t left_;
    Block* blocks_ = nullptr;
    std::size_t handedOut_ = 0;
    std::size_t cap_;
    std::size_t nextBlockSize_;
};

} // namespace Velmor::Asn1Rt

// ---- Context -----------------------------------------------------------------------------

// The state one message buffer owns: the arena, the decode position (decode buffers only)
// and the first failure seen. A failure is sticky: once status is negative, readers, writers
// and Encode()/Decode() keep failing until the owning buffer's init()/reset().
struct ASN1CTXT {
    explicit ASN1CTXT(std::size_t arenaCap) noexcept : arena(arenaCap) {
        errText[0] = '\0';
        errPath[0] = '\0';
    }
    ASN1CTXT(const ASN1CTXT&) = delete;
    ASN1CTXT& operator=(const ASN1CTXT&) = delete;

    Velmor::Asn1Rt::Arena arena;

    // Input of a decode buffer, and the offset of the next unread octet.
    const ASN1OCTET* decData = nullptr;
    std::size_t decLen = 0;
    std::size_t decPos = 0;

    // First failure: its status, the input offset where it was seen (decoding), a short
    // text naming the element ("RTERR_IDNOTFOU: INTEGER in CertID, unexpected tag 0x04 at
    // offset 17") whose first errReasonLen characters leave the offset out, and the path of
    // the fields being read when a decoder failed ("tbsRequest.requestList[0].reqCert"; ""
    // when none was named). Both texts are written only on failure, so they are not
    // zero-filled.
    int status = ASN_OK;
    std::size_t errOffset = 0;
    std::size_t errReasonLen = 0;
    char errText[112];
    char errPath[128];

    // Nesting of ASN1CType::Encode/Decode calls; only the outermost checks for trailing bytes.
    unsigned ctypeDepth = 0;
};

// ---- Arena allocation and copies ---------------------------------------------------------

// size bytes of context memory, 16-byte aligned; null (and RTERR_NOMEM recorded in the
// context) when the cap is reached or memory is out. size 0 gives a valid non-null pointer.
// Records RTERR_NOMEM in ctxt (when there is one); returns null.
[[gnu::cold, gnu::noinline]] void* rtMemHeapAllocFailed(ASN1CTXT* ctxt) noexcept;
inline void* rtMemHeapAlloc(ASN1CTXT* ctxt, std::size_t size) noexcept {
    if (ctxt != nullptr) {
        if (void* p = ctxt->arena.allocate(size)) {
            return p;
        }
    }
    return rtMemHeapAllocFailed(ctxt);
}
// As rtMemHeapAlloc, zero-filled. Inline, so that the fill of a structure of known size is
// a few stores.
inline void* rtMemHeapAllocZ(ASN1CTXT* ctxt, std::size_t size) noexcept {
    void* p = rtMemHeapAlloc(ctxt, size);
    if (p != nullptr && size != 0) {
        std::memset(p, 0, size);
    }
    return p;
}
// A copy of size bytes in context memory, or null on failure (non-null for size 0).
ASN1OCTET* rtMemCopy(ASN1CTXT* ctxt, const void* src, std::size_t size) noexcept;
// A NUL-terminated copy of text in context memory, or null on failure or null text.
char* rtMemStrDup(ASN1CTXT* ctxt, const char* text) noexcept;
// A copy of size bytes followed by a NUL, or null on failure.
char* rtMemStrNDup(ASN1CTXT* ctxt, const void* src, std::size_t size) noexcept;

// A value-initialised T in context memory, or null. T must be trivially destructible,
// because nothing in an arena is ever destroyed.
template <class T> T* rtMemNew(ASN1CTXT* ctxt) noexcept {
    static_assert(std::is_trivially_destructible_v<T>, "arena objects are never destroyed");
    void* p = rtMemHeapAlloc(ctxt, sizeof(T));
    return p == nullptr ? nullptr : new (p) T();
}

// Deep copies of the value views into ctxt (for asn1Copy_<Type> functions): 0 or
// RTERR_NOMEM. An empty source gives an empty destination with a null data pointer.
int rtCopy(ASN1CTXT* ctxt, const ASN1OpenType& from, ASN1OpenType& to) noexcept;
int rtCopy(ASN1CTXT* ctxt, const ASN1TDynOctStr& from, ASN1TDynOctStr& to) noexcept;
int rtCopy(ASN1CTXT* ctxt, const ASN1TDynBitStr& from, ASN1TDynBitStr& to) noexcept;
int rtCopy(ASN1CTXT* ctxt, const ASN1OBJID& from, ASN1OBJID& to) noexcept;
int rtCopy(ASN1CTXT* ctxt, const ASN1TDynBigInt& from, ASN1TDynBigInt& to) noexcept;
// Text values: times and character strings. A null source copies as null.
int rtCopy(ASN1CTXT* ctxt, const char* from, const char*& to) noexcept;

// ---- List helpers ------------------------------------------------------------------------

// Makes list empty (without freeing anything: nodes live in an arena).
void rtDListInit(OSRTDList* list) noexcept;
// Appends data in a node taken from ctxt: 0, or RTERR_NOMEM with the list unchanged.
int rtDListAppend(ASN1CTXT* ctxt, OSRTDList* list, void* data) noexcept;

// A node carrying a value-initialised T, both in one piece of ctxt's memory (so an element
// costs one allocation), not yet in any list; null when ctxt has no memory left.
template <class T> OSRTDListNode* rtDListNewNode(ASN1CTXT* ctxt) noexcept {
    static_assert(std::is_trivially_destructible_v<T>, "arena objects are never destroyed");
    struct Cell {
        OSRTDListNode node;
        T value;
    };
    void* memory = rtMemHeapAlloc(ctxt, sizeof(Cell));
    if (memory == nullptr) {
        return nullptr;
    }
    Cell* cell = new (memory) Cell{{nullptr, nullptr, nullptr}, T()};
    cell->node.data = &cell->value;
    return &cell->node;
}

// Links node at the end of list; false, changing nothing, when the list cannot grow.
inline bool rtDListLink(OSRTDList& list, OSRTDListNode& node) noexcept {
    if (list.count == UINT32_MAX) {
        return false;
    }
    node.next = nullptr;
    node.prev = list.tail;
    (list.tail != nullptr ? list.tail->next : list.head) = &node;
    list.tail = &node;
    ++list.count;
    return true;
}

// A value-initialised T appended to list (see rtDListNewNode); null, with the list
// unchanged, when ctxt has no memory left or the list cannot grow.
template <class T> T* rtDListAppendNew(ASN1CTXT* ctxt, OSRTDList& list) noexcept {
    OSRTDListNode* node = rtDListNewNode<T>(ctxt);
    if (node == nullptr || !rtDListLink(list, *node)) {
        return nullptr;
    }
    return static_cast<T*>(node->data);
}

// Deep copy of a list of T into ctxt; copyElem(ctxt, const T& from, T& to) copies one
// element and returns int status (or void). 0 or the first negative status.
template <class T, class F>
int rtCopyList(ASN1CTXT* ctxt, const OSRTDList& from, OSRTDList& to, F&& copyElem) {
    rtDListInit(&to);
    for (const OSRTDListNode* n = from.head; n != nullptr; n = n->next) {
        T* elem = rtDListAppendNew<T>(ctxt, to);
        if (elem == nullptr) {
            return RTERR_NOMEM;
        }
        if constexpr (std::is_void_v<decltype(copyElem(ctxt, *static_cast<const T*>(n->data),
                                                       *elem))>) {
            copyElem(ctxt, *static_cast<const T*>(n->data), *elem);
        } else {
            int st = copyElem(ctxt, *static_cast<const T*>(n->data), *elem);
            if (st < 0) {
                return st;
            }
        }
    }
    return ASN_OK;
}

// ---- Diagnostics -------------------------------------------------------------------------

// Name of a status ("RTERR_ENDOFBUF"), or "RTERR_UNKNOWN" for a value not listed above.
const char* rtErrText(int status) noexcept;
// The context's failure text ("" when it has not failed).
const char* rtErrDetail(const ASN1CTXT* ctxt) noexcept;
// True when the context's failure was seen at an input offset (errOffset): a reader's
// failure while decoding. An encode's failure and a refused allocation have none.
bool rtErrHasOffset(const ASN1CTXT* ctxt) noexcept;
// Records a failure in ctxt unless one is recorded already; returns status unchanged.
// what names the element (may be null); offset is where in the input it was seen.
int rtErrSet(ASN1CTXT* ctxt, int status, const char* what, std::size_t offset) noexcept;

#endif
