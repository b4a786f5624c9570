// Lists of SEQUENCE OF / SET OF values: nodes in arena memory, and their control class.
#include "asn1/asn1_ctype.h"
#include "asn1/asn1_detail.h"

void rtDListInit(OSRTDList* list) noexcept {
    if (list != nullptr) {
        *list = OSRTDList{};
    }
}

int rtDListAppend(ASN1CTXT* ctxt, OSRTDList* list, void* data) noexcept {
    if (list == nullptr) {
        return RTERR_INVPARAM;
    }
    if (list->count == UINT32_MAX) {
        return Velmor::Asn1Rt::setError(ctxt, RTERR_NOMEM, "list too long", nullptr,
                                        Velmor::Asn1Rt::kNoOffset);
    }
    auto* node = static_cast<OSRTDListNode*>(rtMemHeapAlloc(ctxt, sizeof(OSRTDListNode)));
    if (node == nullptr) {
        return RTERR_NOMEM;
    }
    node->data = data;
    node->next = nullptr;
    node->prev = list->tail;
    if (list->tail != nullptr) {
        list->tail->next = node;
    } else {
        list->head = node;
    }
    list->tail = node;
    ++list->count;
    return ASN_OK;
}

void* ASN1CSeqOfListIterator::next() noexcept {
    if (node_ == nullptr) {
        return nullptr;
    }
    void* data = node_->data;
    node_ = node_->next;
    return data;
}

void ASN1CSeqOfList::append(void* data) noexcept {
    // A refused node is already recorded in the context by the allocator.
    rtDListAppend(ctxt_, &list_, data);
}

ASN1CSeqOfListIterator* ASN1CSeqOfList::iterator() noexcept {
    iter_.node_ = list_.head;
    return &iter_;
}
