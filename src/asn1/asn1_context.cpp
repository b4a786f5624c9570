// The context's arena, allocation and copy helpers, and failure diagnostics.
#include "asn1/asn1_base.h"
#include "asn1/asn1_detail.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <new>

namespace Velmor::Asn1Rt {

static_assert(__STDCPP_DEFAULT_NEW_ALIGNMENT__ >= Arena::kAlign,
              "heap blocks must be aligned as arena allocations are");

// Heap block header; the block's memory follows it, at an offset that keeps kAlign.
struct Arena::Block {
    Block* next;
    std::size_t size;
};

namespace {

// Room for a Block header, rounded up so that the memory after it keeps the alignment.
constexpr std::size_t kBlockHeader =
    (sizeof(void*) + sizeof(std::size_t) + Arena::kAlign - 1) / Arena::kAlign * Arena::kAlign;
constexpr std::size_t kFirstHeapBlock = 4096;
constexpr std::size_t kMaxHeapBlock = std::size_t{1} << 20;

// size rounded up to the alignment, or 0 when that overflows.
std::size_t roundUp(std::size_t size) noexcept {
    if (size > SIZE_MAX - (Arena::kAlign - 1)) {
        return 0;
    }
    return (size + Arena::kAlign - 1) & ~(Arena::kAlign - 1);
}

} // namespace

Arena::Arena(std::size_t cap) noexcept
    : cur_(inline_), left_(kInlineSize), cap_(cap), nextBlockSize_(kFirstHeapBlock) {}

Arena::~Arena() { release(); }

void Arena::release() noexcept {
    while (blocks_ != nullptr) {
        Block* next = blocks_->next;
        ::operator delete(static_cast<void*>(blocks_));
        blocks_ = next;
    }
    cur_ = inline_;
    left_ = kInlineSize;
    handedOut_ = 0;
    nextBlockSize_ = kFirstHeapBlock;
}

std::size_t Arena::heapBlocks() const noexcept {
    std::size_t count = 0;
    for (const Block* b = blocks_; b != nullptr; b = b->next) {
        ++count;
    }
    return count;
}

// Makes a heap block of at least minSize usable octets the current block.
bool Arena::addBlock(std::size_t minSize) noexcept {
    static_assert(sizeof(Block) <= kBlockHeader);
    std::size_t size = minSize > nextBlockSize_ ? minSize : nextBlockSize_;
    if (size > SIZE_MAX - kBlockHeader) {
        return false;
    }
    void* raw = ::operator new(kBlockHeader + size, std::nothrow);
    if (raw == nullptr) {
        return false;
    }
    Block* block = static_cast<Block*>(raw);
    block->next = blocks_;
    block->size = size;
    blocks_ = block;
    cur_ = static_cast<unsigned char*>(raw) + kBlockHeader;
    left_ = size;
    if (nextBlockSize_ < kMaxHeapBlock) {
        nextBlockSize_ *= 2;
    }
    return true;
}

void* Arena::allocateElsewhere(std::size_t size) noexcept {
    std::size_t rounded = roundUp(size);
    if (size != 0 && rounded == 0) {
        return nullptr;
    }
    if (handedOut_ > cap_ || rounded > cap_ - handedOut_) {
        return nullptr;
    }
    if (rounded > left_) {
        // Large requests get a block of their own so that the current block's free space
        // is not thrown away; the current block stays current.
        if (rounded > nextBlockSize_ / 2 && left_ >= 64) {
            unsigned char* keepCur = cur_;
            std::size_t keepLeft = left_;
            if (!addBlock(rounded)) {
                return nullptr;
            }
            void* p = cur_;
            cur_ = keepCur;
            left_ = keepLeft;
            handedOut_ += rounded;
            return p;
        }
        if (!addBlock(rounded)) {
            return nullptr;
        }
    }
    void* p = cur_;
    cur_ += rounded;
    left_ -= rounded;
    handedOut_ += rounded;
    return p;
}

// ---- Diagnostics

int setError(ASN1CTXT* ctxt, int status, const char* what, const char* within, std::size_t offset,
             int found) noexcept {
    if (ctxt == nullptr || status >= 0 || ctxt->status != ASN_OK) {
        return status;
    }
    ctxt->status = status;
    ctxt->errOffset = offset;
    int n = std::snprintf(ctxt->errText, sizeof ctxt->errText, "%s", rtErrText(status));
    auto append = [&](const char* fmt, auto value) {
        if (n >= 0 && static_cast<std::size_t>(n) < sizeof ctxt->errText) {
            int m = std::snprintf(ctxt->errText + n, sizeof ctxt->errText - n, fmt, value);
            n = m < 0 ? m : n + m;
        }
    };
    if (what != nullptr) {
        append(": %s", what);
    }
    if (within != nullptr) {
        append(" in %s", within);
    }
    if (found != kNoTag) {
        append(", unexpected tag 0x%02X", static_cast<unsigned>(found));
    }
    ctxt->errReasonLen =
        n < 0 ? 0 : std::min(static_cast<std::size_t>(n), sizeof ctxt->errText - 1);
    if (offset != kNoOffset) {
        append(" at offset %zu", offset);
    }
    return status;
}

} // namespace Velmor::Asn1Rt

using Velmor::Asn1Rt::kNoOffset;
using Velmor::Asn1Rt::setError;

const char* rtErrText(int status) noexcept {
    switch (status) {
    case ASN_OK:
        return "ASN_OK";
    case RTERR_ENDOFBUF:
        return "RTERR_ENDOFBUF";
    case RTERR_IDNOTFOU:
        return "RTERR_IDNOTFOU";
    case RTERR_BADTAG:
        return "RTERR_BADTAG";
    case RTERR_INVLEN:
        return "RTERR_INVLEN";
    case RTERR_BADVALUE:
        return "RTERR_BADVALUE";
    case RTERR_INVPARAM:
        return "RTERR_INVPARAM";
    case RTERR_NOMEM:
        return "RTERR_NOMEM";
    case RTERR_TOODEEP:
        return "RTERR_TOODEEP";
    case RTERR_TRAILING:
        return "RTERR_TRAILING";
    default:
        return "RTERR_UNKNOWN";
    }
}

const char* rtErrDetail(const ASN1CTXT* ctxt) noexcept {
    return ctxt == nullptr || ctxt->status == ASN_OK ? "" : ctxt->errText;
}

bool rtErrHasOffset(const ASN1CTXT* ctxt) noexcept {
    return ctxt != nullptr && ctxt->status != ASN_OK && ctxt->errOffset != kNoOffset;
}

int rtErrSet(ASN1CTXT* ctxt, int status, const char* what, std::size_t offset) noexcept {
    return setError(ctxt, status, what, nullptr, offset);
}

// ---- Allocation

void* rtMemHeapAllocFailed(ASN1CTXT* ctxt) noexcept {
    if (ctxt != nullptr) {
        setError(ctxt, RTERR_NOMEM, "arena", nullptr, kNoOffset);
    }
    return nullptr;
}

ASN1OCTET* rtMemCopy(ASN1CTXT* ctxt, const void* src, std::size_t size) noexcept {
    auto* p = static_cast<ASN1OCTET*>(rtMemHeapAlloc(ctxt, size));
    if (p != nullptr && size != 0) {
        std::memcpy(p, src, size);
    }
    return p;
}

char* rtMemStrNDup(ASN1CTXT* ctxt, const void* src, std::size_t size) noexcept {
    if (size == SIZE_MAX) {
        return nullptr;
    }
    auto* p = static_cast<char*>(rtMemHeapAlloc(ctxt, size + 1));
    if (p != nullptr) {
        if (size != 0) {
            std::memcpy(p, src, size);
        }
        p[size] = '\0';
    }
    return p;
}

char* rtMemStrDup(ASN1CTXT* ctxt, const char* text) noexcept {
    return text == nullptr ? nullptr : rtMemStrNDup(ctxt, text, std::strlen(text));
}

// ---- Copies

namespace {

// Copies size octets of a view into ctxt; 0 or RTERR_NOMEM. Empty views copy as null.
int copyOctets(ASN1CTXT* ctxt, const ASN1OCTET* from, std::size_t size, const ASN1OCTET*& to) {
    if (size == 0 || from == nullptr) {
        to = nullptr;
        return ASN_OK;
    }
    to = rtMemCopy(ctxt, from, size);
    return to == nullptr ? RTERR_NOMEM : ASN_OK;
}

} // namespace

int rtCopy(ASN1CTXT* ctxt, const ASN1OpenType& from, ASN1OpenType& to) noexcept {
    to.numocts = from.data == nullptr ? 0 : from.numocts;
    return copyOctets(ctxt, from.data, to.numocts, to.data);
}

int rtCopy(ASN1CTXT* ctxt, const ASN1TDynOctStr& from, ASN1TDynOctStr& to) noexcept {
    to.numocts = from.data == nullptr ? 0 : from.numocts;
    return copyOctets(ctxt, from.data, to.numocts, to.data);
}

int rtCopy(ASN1CTXT* ctxt, const ASN1TDynBitStr& from, ASN1TDynBitStr& to) noexcept {
    to.numbits = from.data == nullptr ? 0 : from.numbits;
    return copyOctets(ctxt, from.data, (std::size_t{to.numbits} + 7) / 8, to.data);
}

int rtCopy(ASN1CTXT* ctxt, const ASN1OBJID& from, ASN1OBJID& to) noexcept {
    to.numocts = from.data == nullptr ? 0 : from.numocts;
    return copyOctets(ctxt, from.data, to.numocts, to.data);
}

int rtCopy(ASN1CTXT* ctxt, const ASN1TDynBigInt& from, ASN1TDynBigInt& to) noexcept {
    to.numocts = from.data == nullptr ? 0 : from.numocts;
    return copyOctets(ctxt, from.data, to.numocts, to.data);
}

int rtCopy(ASN1CTXT* ctxt, const char* from, const char*& to) noexcept {
    if (from == nullptr) {
        to = nullptr;
        return ASN_OK;
    }
    to = rtMemStrDup(ctxt, from);
    return to == nullptr ? RTERR_NOMEM : ASN_OK;
}
