// Converters between the library's value types and the ASN.1 structures. The set functions
// fill a structure in memory of the given context; the get functions build value types from
// a structure. Failures throw CAtlException: CRYPT_E_ASN1_MEMORY when the context has no
// memory left, CRYPT_E_ASN1_INTERNAL for a value that cannot be encoded or decoded.
#ifndef VELMOR_SRC_FOUNDATION_ASN1_TRAITS_H
#define VELMOR_SRC_FOUNDATION_ASN1_TRAITS_H

#include "asn1/ocsp_types.h"
#include "foundation/certificate_list.h"
#include "foundation/value_record.h"

#include <memory>
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

// OCTET STRING contents <-> CBlob. get reuses value's storage when the contents fit.
struct ASN1TDynOctStr_traits {
    using Type = ASN1TDynOctStr;
    static void set(ASN1CTXT* ctxt, ASN1TDynOctStr& out, const CBlob& value);
    static void get(const ASN1TDynOctStr& in, CBlob& value);
};

// BIT STRING <-> CBlob of whole octets (a signature value). get keeps the octets as they
// stand (a bit count that is not a multiple of 8 keeps its last, partly used octet) and
// reuses value's storage when they fit.
struct ASN1TDynBitStr_traits {
    using Type = ASN1TDynBitStr;
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
    using Type = ASN1T_Name;
    static void set(ASN1CTXT* ctxt, ASN1T_Name& out, const CBlob& der);
    static void get(const ASN1T_Name& in, CBlob& der);
};

struct ASN1T_Extensions_traits {
    using Type = ASN1T_Extensions;
    static void set(ASN1CTXT* ctxt, ASN1T_Extensions& out, const CExtensions& value);
    static void get(const ASN1T_Extensions& in, CExtensions& value);
};

// An optional extensions field of a structure. Set writes value into out when it is present
// and not empty, and says whether it did: an empty list is left off the wire. Get gives the
// decoded list when the field was present (an empty one stays present), null otherwise.
bool SetOptionalExtensions(ASN1CTXT* ctxt, ASN1T_Extensions& out, const CExtensions* value);
Detail::Owned<CExtensions> GetOptionalExtensions(bool present, const ASN1T_Extensions& in);

struct ASN1T_GeneralName_traits {
    using Type = ASN1T_GeneralName;
    static void set(ASN1CTXT* ctxt, ASN1T_GeneralName& out, const CGeneralName& value);
    static void get(const ASN1T_GeneralName& in, CGeneralName& value);
};

struct ASN1T_CRLDistPointsSyntax_traits {
    using Type = ASN1T_CRLDistPointsSyntax;
    static void set(ASN1CTXT* ctxt, ASN1T_CRLDistPointsSyntax& out,
                    const CCRLDistPointsSyntax& value);
    static void get(const ASN1T_CRLDistPointsSyntax& in, CCRLDistPointsSyntax& value);
};

struct ASN1T_AuthorityInfoAccessSyntax_traits {
    using Type = ASN1T_AuthorityInfoAccessSyntax;
    static void set(ASN1CTXT* ctxt, ASN1T_AuthorityInfoAccessSyntax& out,
                    const CAuthorityInfoAccessSyntax& value);
    static void get(const ASN1T_AuthorityInfoAccessSyntax& in, CAuthorityInfoAccessSyntax& value);
};

// AlgorithmIdentifier <-> OID text and parameters. set leaves the parameters out when the
// value's parameters blob is empty; get gives an empty blob for absent parameters (and, for
// a CAlgorithmIdentifierEx, an unresolved ALG_ID).
struct ASN1T_AlgorithmIdentifier_traits {
    using Type = ASN1T_AlgorithmIdentifier;
    static void set(ASN1CTXT* ctxt, ASN1T_AlgorithmIdentifier& out,
                    const CAlgorithmIdentifier& value);
    static void get(const ASN1T_AlgorithmIdentifier& in, CAlgorithmIdentifier& value);
};

// SEQUENCE OF Certificate <-> a message's certificates. set writes a present list (not null)
// and throws CRYPT_E_ASN1_INTERNAL for a blob that is not a certificate, decoding the blobs
// only when the list is not known to be checked, then marks it so; get makes a checked list
// of each certificate's encoding (the octets it arrived in, since decoded certificates keep
// them).
struct ASN1T__SeqOfCertificate_traits {
    using Type = ASN1T__SeqOfCertificate;
    static void set(ASN1CTXT* ctxt, ASN1T__SeqOfCertificate& out, const CertificateList& value);
    static void get(const ASN1T__SeqOfCertificate& in, CertificateList& value);
};

// INTEGER contents octets <-> CBigInteger, the octets kept exactly. get throws
// CRYPT_E_ASN1_INTERNAL for an empty INTEGER.
struct ASN1TDynBigInt_traits {
    using Type = ASN1TDynBigInt;
    static void set(ASN1CTXT* ctxt, ASN1TDynBigInt& out, const CBigInteger& value);
    static void get(const ASN1TDynBigInt& in, CBigInteger& value);
};

// The value of one DER INTEGER element; CRYPT_E_ASN1_INTERNAL for anything else.
CBigInteger DerIntegerToBigInteger(const ASN1OCTET* der, std::size_t size);

} // namespace Velmor::ASN1

#endif
