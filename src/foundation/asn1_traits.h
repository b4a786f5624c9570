// Converters between the library's value types and the ASN.1 structures. The set functions
// fill a structure in memory of the given context; the get functions build value types from
// a structure. Failures throw CAtlException: CRYPT_E_ASN1_MEMORY when the context has no
// memory left, CRYPT_E_ASN1_INTERNAL for a value that cannot be encoded or decoded.
#ifndef VELMOR_SRC_FOUNDATION_ASN1_TRAITS_H
#define VELMOR_SRC_FOUNDATION_ASN1_TRAITS_H

#include "asn1/der_cursor.h"
#include "asn1/pkix_types.h"

#include <pki/ocsp/algorithm_identifier.h>
#include <pki/ocsp/authority_info_access.h>
#include <pki/ocsp/big_integer.h>
#include <pki/ocsp/blob.h>
#include <pki/ocsp/crl_dist_points.h>
#include <pki/ocsp/datetime.h>
#include <pki/ocsp/extensions.h>
#include <pki/ocsp/general_name.h>
#include <pki/ocsp/string_proxy.h>

namespace Velmor::ASN1 {

// OCTET STRING contents <-> CBlob.
struct ASN1TDynOctStr_traits {
    static void set(ASN1CTXT* ctxt, ASN1TDynOctStr& out, const CBlob& value);
    static void get(const ASN1TDynOctStr& in, CBlob& value);
};

// BIT STRING <-> CBlob of whole octets (a signature value). get keeps the octets as they
// stand; a bit count that is not a multiple of 8 keeps its last, partly used octet.
struct ASN1TDynBitStr_traits {
    static void set(ASN1CTXT* ctxt, ASN1TDynBitStr& out, const CBlob& value);
    static void get(const ASN1TDynBitStr& in, CBlob& value);
};

// OBJECT IDENTIFIER <-> dotted decimal text. set throws CRYPT_E_ASN1_INTERNAL for text
// that is not an OID.
struct ASN1TObjId_traits {
    static void set(ASN1CTXT* ctxt, ASN1OBJID& out, const char* text);
    static void get(const ASN1OBJID& in, CStringProxy& text);
};

// GeneralizedTime text <-> CDateTime. set writes the UTC form (YYYYMMDDHHMMSS[.f]Z); get
// throws CRYPT_E_ASN1_INTERNAL for text that is not a time. encode and decode convert
// between a CDateTime and the DER of a whole GeneralizedTime element.
struct ASN1GeneralizedTime_traits {
    static void set(ASN1CTXT* ctxt, const char*& out, const CDateTime& value);
    static void get(const char* in, CDateTime& value);
    static CBlob encode(const CDateTime& value);
    static void decode(const CBlob& der, CDateTime& value);
};

// Name <-> the DER of a Name, attribute values kept exactly.
struct ASN1T_Name_traits {
    static void set(ASN1CTXT* ctxt, ASN1T_Name& out, const CBlob& der);
    static void get(const ASN1T_Name& in, CBlob& der);
};

struct ASN1T_Extensions_traits {
    static void set(ASN1CTXT* ctxt, ASN1T_Extensions& out, const CExtensions& value);
    static void get(const ASN1T_Extensions& in, CExtensions& value);
};

// Reads "[n] EXPLICIT Extensions" from strict DER and appends the extensions to value, a
// fresh list of the caller's. False, with value holding part of them, for anything the DER
// fast path does not take; the caller then discards value.
bool ReadDerExplicitExtensions(Velmor::Asn1Rt::DerCursor& in, unsigned n, CExtensions& value);

struct ASN1T_GeneralName_traits {
    static void set(ASN1CTXT* ctxt, ASN1T_GeneralName& out, const CGeneralName& value);
    static void get(const ASN1T_GeneralName& in, CGeneralName& value);
};

struct ASN1T_CRLDistPointsSyntax_traits {
    static void set(ASN1CTXT* ctxt, ASN1T_CRLDistPointsSyntax& out,
                    const CCRLDistPointsSyntax& value);
    static void get(const ASN1T_CRLDistPointsSyntax& in, CCRLDistPointsSyntax& value);
};

struct ASN1T_AuthorityInfoAccessSyntax_traits {
    static void set(ASN1CTXT* ctxt, ASN1T_AuthorityInfoAccessSyntax& out,
                    const CAuthorityInfoAccessSyntax& value);
    static void get(const ASN1T_AuthorityInfoAccessSyntax& in, CAuthorityInfoAccessSyntax& value);
};

// An AlgorithmIdentifier structure in context memory for oid and, when not null, the DER of
// its parameters.
ASN1T_AlgorithmIdentifier& ASN1T_AlgorithmIdentifier_set(ASN1CTXT* ctxt, const char* oid,
                                                         const CBlob* parameters);
void ASN1T_AlgorithmIdentifier_get(CAlgorithmIdentifier& out, const ASN1T_AlgorithmIdentifier& in);

// GeneralizedTime text in context memory: with utc true the UTC form, otherwise local time
// with its offset (CDateTime::ToGeneralizedTime).
const char* DateToASN1GeneralizedTime(ASN1CTXT* ctxt, const CDateTime& date, bool utc);

// The runtime's INTEGER text ("0x" + hex of the contents octets) and back. The reverse
// also takes signed decimal text; other text throws CRYPT_E_ASN1_INTERNAL.
const char* BigIntegerToASN1String(ASN1CTXT* ctxt, const CBigInteger& value);
CBigInteger ASN1StringToBigInteger(const char* text);
// The value of one DER INTEGER element; CRYPT_E_ASN1_INTERNAL for anything else.
CBigInteger DerIntegerToBigInteger(const ASN1OCTET* der, std::size_t size);

} // namespace Velmor::ASN1

#endif
