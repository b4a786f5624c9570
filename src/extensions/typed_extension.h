// What the extension classes share: their object identifiers, and the one codec path by which
// a class with a typed value keeps its record of fields and its value blob in step. A class
// adds only its record and the converter of its value's ASN.1 type over that record, in the
// traits form (Traits::Type, Traits::set, Traits::get).
#ifndef VELMOR_SRC_EXTENSIONS_TYPED_EXTENSION_H
#define VELMOR_SRC_EXTENSIONS_TYPED_EXTENSION_H

#include "foundation/codec_frame.h"
#include "foundation/value_record.h"

#include <memory>
#include <pki/ocsp/blob.h>
#include <pki/ocsp/extensions.h>
#include <utility>

namespace Velmor::PKI::OCSP {

// The extensions' object identifiers, written into each class's base as they stand here.
namespace ExtensionOid {
inline constexpr char kNonce[] = "1.3.6.1.5.5.7.48.1.2";
inline constexpr char kCrlID[] = "1.3.6.1.5.5.7.48.1.3";
inline constexpr char kAcceptableResponses[] = "1.3.6.1.5.5.7.48.1.4";
inline constexpr char kArchiveCutoff[] = "1.3.6.1.5.5.7.48.1.6";
inline constexpr char kServiceLocator[] = "1.3.6.1.5.5.7.48.1.7";
inline constexpr char kCRLLocator[] = "1.2.643.2.2.47.2";
inline constexpr char kInstantRevocationIndicator[] = "1.2.643.2.2.47.3";
inline constexpr char kRevocationAnnouncementReference[] = "1.2.643.2.2.47.4";
inline constexpr char kHistoricalRequest[] = "1.2.643.2.2.47.5";
} // namespace ExtensionOid

// The codec path of class C, whose record Traits converts to and from the value's ASN.1
// structure.
template <class C, class Traits> struct TypedExtension {
    using Record = Detail::Records::Record<C>;

    // A record decoded from an extension value. Throws CRYPT_E_ASN1_INTERNAL for bytes that
    // are not one value of the syntax, an empty blob included.
    static std::unique_ptr<Record> Decode(const CBlob& value) {
        auto fields = std::make_unique<Record>();
        Codec::DecodeWith<Traits>(value, *fields);
        return fields;
    }

    // Replaces value with the encoding of object's record, in value's own storage when it
    // has room; value keeps its bytes when that throws.
    static void Encode(const C& object, CBlob& value) {
        Codec::EncodeWith<Traits>(Detail::Records::Of(object), value);
    }

    // Encodes fields into value and only then gives them to object as its record (the old one,
    // if any, is freed): a typed constructor that throws leaves nothing behind.
    static void Install(C& object, CBlob& value, std::unique_ptr<Record> fields) {
        value = Codec::EncodeWith<Traits>(*fields);
        Detail::Records::Replace(object, std::move(fields));
    }

    // Copy assignment: the record is copied first, then the base (identifier and value).
    static void Assign(C& to, const C& from) {
        if (&to == &from) {
            return;
        }
        auto copy = std::make_unique<Record>(Detail::Records::Of(from));
        static_cast<ASN1::CExtValue&>(to) = from;
        Detail::Records::Replace(to, std::move(copy));
    }
};

} // namespace Velmor::PKI::OCSP

#endif
