#include "foundation/asn1_traits.h"

#include "asn1/asn1_known_names.h"

#include "foundation/codec_frame.h"
#include "foundation/datetime_text.h"
#include "foundation/entry_recycler.h"
#include "foundation/list_access.h"
#include "foundation/oid_text.h"
#include "foundation/string_proxy_access.h"

#include <array>
#include <cstring>
#include <list>
#include <optional>
#include <pki/ocsp/atl_exception.h>
#include <string>
#include <string_view>
#include <vector>

using namespace Velmor::Win32;
using Velmor::Codec::AllocZ;
using Velmor::Codec::AppendNew;
using Velmor::Codec::CopyBytes;
using Velmor::Codec::NewZ;

namespace Velmor::ASN1 {

namespace {

unsigned long ToLength(std::size_t size) { return static_cast<unsigned long>(size); }

CBlob BlobOf(const ASN1OCTET* data, std::size_t size) {
    return size == 0 ? CBlob() : CBlob(data, ToLength(size));
}

const char* CopyText(ASN1CTXT* ctxt, std::string_view text) {
    char* copy = rtMemStrNDup(ctxt, text.data(), text.size());
    if (copy == nullptr) {
        ATL::AtlThrow(CRYPT_E_ASN1_MEMORY);
    }
    return copy;
}

// A fresh T in context memory appended to list.

// Calls visit(const T&) for each element of a list of T.
template <class T, class F> void ForEach(const OSRTDList& list, F&& visit) {
    for (const OSRTDListNode* node = list.head; node != nullptr; node = node->next) {
        visit(*static_cast<const T*>(node->data));
    }
}

// ReasonFlags: bit n of the mask is the BIT STRING's bit n (the high bit of octet 0 is
// bit 0). DER drops trailing zero bits.
ASN1TDynBitStr ReasonBitsFromMask(ASN1CTXT* ctxt, unsigned mask) {
    ASN1TDynBitStr bits;
    ASN1OCTET octets[sizeof(unsigned)] = {};
    for (unsigned n = 0; n < 8 * sizeof(unsigned); ++n) {
        if ((mask >> n) & 1u) {
            octets[n / 8] = static_cast<ASN1OCTET>(octets[n / 8] | (0x80u >> (n % 8)));
            bits.numbits = n + 1;
        }
    }
    bits.data = CopyBytes(ctxt, octets, (bits.numbits + 7) / 8);
    return bits;
}

unsigned ReasonMaskFromBits(const ASN1TDynBitStr& bits) {
    unsigned mask = 0;
    for (OSUINT32 n = 0; n < bits.numbits && n < 8 * sizeof(unsigned); ++n) {
        if (bits.data[n / 8] & (0x80u >> (n % 8))) {
            mask |= 1u << n;
        }
    }
    return mask;
}

void SetGeneralNames(ASN1CTXT* ctxt, ASN1T_GeneralNames& out, const CGeneralNames& names) {
    rtDListInit(&out);
    for (const CGeneralName& name : names) {
        ASN1T_GeneralName_traits::set(ctxt, AppendNew<ASN1T_GeneralName>(ctxt, out), name);
    }
}

// A new element at the end of items: a spare one of the thread when there is one (its fields
// are all overwritten by the caller), else a default one.
template <class T> T& NewEntry(std::list<T>& items) {
    if (!Velmor::Detail::EntryRecycler<T>::TakeOne(items)) {
        items.emplace_back();
    }
    return items.back();
}

// Replaces the names of field with the decoded ones, each set in place: over the names the
// field already holds, then in spare or new elements; field is reset when in is null. Names
// left over are kept as the thread's spares.
void PutDecodedNames(std::optional<CGeneralNames>& field, const ASN1T_GeneralNames* in) {
    if (in == nullptr) {
        field.reset();
        return;
    }
    std::list<CGeneralName>& items =
        Velmor::Detail::UnderlyingList<CGeneralName>(field ? *field : field.emplace());
    auto reused = items.begin();
    ForEach<ASN1T_GeneralName>(*in, [&](const ASN1T_GeneralName& element) {
        if (reused != items.end()) {
            ASN1T_GeneralName_traits::get(element, *reused++);
        } else {
            ASN1T_GeneralName_traits::get(element, NewEntry(items));
        }
    });
    if (reused != items.end()) {
        std::list<CGeneralName> leftOver;
        leftOver.splice(leftOver.end(), items, reused, items.end());
        Velmor::Detail::EntryRecycler<CGeneralName>::Keep(leftOver);
    }
}

} // namespace

// ---- Strings, identifiers, times

void ASN1TDynOctStr_traits::set(ASN1CTXT* ctxt, ASN1TDynOctStr& out, const CBlob& value) {
    out.data = CopyBytes(ctxt, value.pbData(), value.cbData());
    out.numocts = static_cast<OSUINT32>(value.cbData());
}

// The get functions assign into value, so that a blob decoded into again keeps its storage.
void ASN1TDynOctStr_traits::get(const ASN1TDynOctStr& in, CBlob& value) {
    value.assign(in.data, in.numocts);
}

void ASN1TDynBitStr_traits::set(ASN1CTXT* ctxt, ASN1TDynBitStr& out, const CBlob& value) {
    out.data = CopyBytes(ctxt, value.pbData(), value.cbData());
    out.numbits = static_cast<OSUINT32>(value.cbData() * 8);
}

void ASN1TDynBitStr_traits::get(const ASN1TDynBitStr& in, CBlob& value) {
    value.assign(in.data, ToLength((static_cast<std::size_t>(in.numbits) + 7) / 8));
}

void ASN1TObjId_traits::set(ASN1CTXT* ctxt, ASN1OBJID& out, const char* text) {
    if (text == nullptr) {
        ATL::AtlThrow(CRYPT_E_ASN1_INTERNAL);
    }
    const std::size_t length = std::strlen(text);
    auto* contents = static_cast<std::uint8_t*>(AllocZ(ctxt, length + 1));
    const std::size_t size = Velmor::Codec::OidTextToContents(text, contents);
    if (size == 0) {
        ATL::AtlThrow(CRYPT_E_ASN1_INTERNAL);
    }
    out.data = contents;
    out.numocts = static_cast<OSUINT32>(size);
}

namespace {

// The dotted text of a decoded OID, valid until the thread's next call; CRYPT_E_ASN1_INTERNAL
// for contents that are not one. The text is built in storage the thread keeps, so that the
// callers, which copy it at once, need no allocation of their own. NUL-terminated.
std::string_view OidText(const ASN1OBJID& in) {
    if (const std::string_view known = Velmor::Codec::KnownOidText(in.data, in.numocts);
        !known.empty()) {
        return known;
    }
    thread_local std::string dotted;
    dotted.clear();
    if (!Velmor::Codec::ComputeOidText(in.data, in.numocts, dotted)) {
        ATL::AtlThrow(CRYPT_E_ASN1_INTERNAL);
    }
    return dotted;
}

} // namespace

void ASN1TObjId_traits::get(const ASN1OBJID& in, CStringProxy& text) {
    Velmor::Detail::StringProxyAccess::Assign(text, OidText(in));
}

void ASN1GeneralizedTime_traits::set(ASN1CTXT* ctxt, const char*& out, const CDateTime& value) {
    char text[Velmor::Detail::kUtcGeneralizedTimeMax];
    const std::size_t length = Velmor::Detail::WriteUtcGeneralizedTime(value, text);
    out = CopyText(ctxt, std::string_view(text, length));
}

void ASN1GeneralizedTime_traits::get(const char* in, CDateTime& value) {
    if (!CDateTime::TryParseGeneralizedTime(in, value)) {
        ATL::AtlThrow(CRYPT_E_ASN1_INTERNAL);
    }
}

// A whole GeneralizedTime element goes through the ArchiveCutoff structure, which is a bare
// GeneralizedTime.
CBlob ASN1GeneralizedTime_traits::encode(const CDateTime& value) {
    ASN1BEREncodeBuffer buffer;
    ASN1T_ArchiveCutoff element;
    set(buffer.getCtxtPtr(), element.value, value);
    return Velmor::Codec::Encode(buffer, element);
}

void ASN1GeneralizedTime_traits::decode(const CBlob& der, CDateTime& value) {
    ASN1BERDecodeBuffer buffer(der.pbData(), der.cbData());
    ASN1T_ArchiveCutoff element;
    Velmor::Codec::Decode(buffer, element, Velmor::Codec::OnEmpty::InvalidArgument);
    get(element.value, value);
}

// ---- Names and general names

void ASN1T_Name_traits::set(ASN1CTXT* ctxt, ASN1T_Name& out, const CBlob& der) {
    Asn1Rt::KnownDerNames& known = Asn1Rt::KnownDerNames::ofThisThread();
    if (known.contains(der.pbData(), der.cbData())) {
        // Copied into ctxt, as every set does: the blob may be a temporary of the caller.
        out.t = 1;
        out.raw.data = CopyBytes(ctxt, der.pbData(), der.cbData());
        out.raw.numocts = der.cbData();
        return;
    }
    Velmor::Codec::DecodeInto(ctxt, der, out, asn1Copy_Name,
                              Velmor::Codec::OnEmpty::InvalidArgument);
    if (Velmor::Codec::Encode(out) == der) {
        known.add(der.pbData(), der.cbData());
    }
}

void ASN1T_Name_traits::get(const ASN1T_Name& in, CBlob& der) {
    // A Name the reader took as known DER is kept as it stands; any other is written again,
    // as DER, and remembered when that changed nothing.
    if (in.raw.numocts != 0) {
        der.assign(in.raw.data, in.raw.numocts);
        return;
    }
    der = Velmor::Codec::Encode(in);
    const ASN1OpenType& received = in.received;
    if (received.numocts != 0 && der.cbData() == received.numocts &&
        std::memcmp(der.pbData(), received.data, received.numocts) == 0) {
        Asn1Rt::KnownDerNames::ofThisThread().add(received.data, received.numocts);
    }
}

void ASN1T_GeneralName_traits::set(ASN1CTXT* ctxt, ASN1T_GeneralName& out,
                                   const CGeneralName& value) {
    const auto choice = value.get_choice();
    out.t = static_cast<OSUINT32>(choice) + 1;
    if (const CBlob* other = value.get_other()) {
        out.other.data = CopyBytes(ctxt, other->pbData(), other->cbData());
        out.other.numocts = static_cast<OSUINT32>(other->cbData());
    } else if (const CBlob* name = value.get_directoryName()) {
        ASN1T_Name_traits::set(ctxt, out.directoryName, *name);
    } else if (const CBlob* address = value.get_iPAddress()) {
        ASN1TDynOctStr_traits::set(ctxt, out.iPAddress, *address);
    } else if (const char* oid = value.get_registeredID()) {
        ASN1TObjId_traits::set(ctxt, out.registeredID, oid);
    } else if (const char* text = value.get_rfc822Name() ? value.get_rfc822Name()
                                  : value.get_dNSName()  ? value.get_dNSName()
                                                         : value.get_uniformResourceIdentifier()) {
        out.text = CopyText(ctxt, text);
    } else {
        ATL::AtlThrow(CRYPT_E_ASN1_INTERNAL); // a GeneralName that was never given a value
    }
}

// value changes through one setter, which leaves it as it was when it throws.
void ASN1T_GeneralName_traits::get(const ASN1T_GeneralName& in, CGeneralName& value) {
    switch (in.t) {
    case T_GeneralName_otherName:
    case T_GeneralName_x400Address:
    case T_GeneralName_ediPartyName:
        value.put_other(static_cast<CGeneralName::Choice>(in.t - 1),
                        BlobOf(in.other.data, in.other.numocts));
        break;
    case T_GeneralName_rfc822Name:
        value.put_rfc822Name(in.text);
        break;
    case T_GeneralName_dNSName:
        value.put_dNSName(in.text);
        break;
    case T_GeneralName_uniformResourceIdentifier:
        value.put_uniformResourceIdentifier(in.text);
        break;
    case T_GeneralName_directoryName: {
        CBlob der;
        ASN1T_Name_traits::get(in.directoryName, der);
        value.put_directoryName(der);
        break;
    }
    case T_GeneralName_iPAddress:
        value.put_iPAddress(BlobOf(in.iPAddress.data, in.iPAddress.numocts));
        break;
    case T_GeneralName_registeredID: {
        CStringProxy oid;
        ASN1TObjId_traits::get(in.registeredID, oid);
        value.put_registeredID(oid.c_str());
        break;
    }
    default:
        ATL::AtlThrow(CRYPT_E_ASN1_INTERNAL);
    }
}

// ---- Extensions

void ASN1T_Extensions_traits::set(ASN1CTXT* ctxt, ASN1T_Extensions& out, const CExtensions& value) {
    rtDListInit(&out);
    for (const CExtension& extension : value) {
        auto& element = AppendNew<ASN1T_Extension>(ctxt, out);
        ASN1TObjId_traits::set(ctxt, element.extnID, extension.get_extnID());
        element.critical = extension.get_critical();
        ASN1TDynOctStr_traits::set(ctxt, element.extnValue, extension.get_extnValue());
    }
}

namespace {

// Appends the value of one decoded Extension to items.
void AppendExtension(const ASN1T_Extension& in, std::list<CExtension>& items) {
    const char* oid = OidText(in.extnID).data();
    if (!Velmor::Detail::EntryRecycler<CExtension>::TakeOne(items)) {
        items.emplace_back(oid, in.critical, BlobOf(in.extnValue.data, in.extnValue.numocts));
        return;
    }
    try {
        CExtension& extension = items.back();
        extension.put_extnID(oid);
        extension.put_critical(in.critical != 0);
        extension.put_extnValue(BlobOf(in.extnValue.data, in.extnValue.numocts));
    } catch (...) {
        items.pop_back();
        throw;
    }
}

} // namespace

void ASN1T_Extensions_traits::get(const ASN1T_Extensions& in, CExtensions& value) {
    // value changes only when every extension converted: into an empty list they are built
    // in place (and dropped again on failure), otherwise aside and then exchanged.
    if (!value.empty()) {
        CExtensions aside;
        get(in, aside);
        value.swap(aside);
        return;
    }
    std::list<CExtension>& items = Velmor::Detail::UnderlyingList<CExtension>(value);
    try {
        ForEach<ASN1T_Extension>(
            in, [&](const ASN1T_Extension& element) { AppendExtension(element, items); });
    } catch (...) {
        items.clear();
        throw;
    }
}

bool SetOptionalExtensions(ASN1CTXT* ctxt, ASN1T_Extensions& out, const CExtensions* value) {
    if (value == nullptr || value->empty()) {
        return false;
    }
    ASN1T_Extensions_traits::set(ctxt, out, *value);
    return true;
}

Detail::Owned<CExtensions> GetOptionalExtensions(bool present, const ASN1T_Extensions& in) {
    if (!present) {
        return nullptr;
    }
    auto extensions = Detail::MakeOwned<CExtensions>();
    ASN1T_Extensions_traits::get(in, *extensions);
    return extensions;
}

// ---- CRL distribution points

void ASN1T_CRLDistPointsSyntax_traits::set(ASN1CTXT* ctxt, ASN1T_CRLDistPointsSyntax& out,
                                           const CCRLDistPointsSyntax& value) {
    rtDListInit(&out);
    for (const CDistributionPoint& point : value) {
        auto& element = AppendNew<ASN1T_DistributionPoint>(ctxt, out);
        if (const CGeneralNames* fullName = point.get_fullName()) {
            element.m.distributionPointPresent = 1;
            element.distributionPoint.t = T_DistributionPointName_fullName;
            SetGeneralNames(ctxt, element.distributionPoint.fullName, *fullName);
        } else if (const CBlob* relative = point.get_nameRelativeToCRLIssuer()) {
            element.m.distributionPointPresent = 1;
            element.distributionPoint.t = T_DistributionPointName_nameRelativeToCRLIssuer;
            Velmor::Codec::DecodeInto(
                ctxt, *relative, element.distributionPoint.nameRelativeToCRLIssuer,
                asn1Copy_RelativeDistinguishedName, Velmor::Codec::OnEmpty::InvalidArgument);
        }
        if (const unsigned* reasons = point.get_reasons()) {
            element.m.reasonsPresent = 1;
            element.reasons = ReasonBitsFromMask(ctxt, *reasons);
        }
        if (const CGeneralNames* issuer = point.get_cRLIssuer()) {
            element.m.cRLIssuerPresent = 1;
            SetGeneralNames(ctxt, element.cRLIssuer, *issuer);
        }
    }
}

// An empty value (a new record) is filled directly and emptied again if that throws; a value
// with points gets a new list, which takes their place only once it is complete. Each point
// is built in place, its names too, in spare elements of the thread when it has them; every
// field of a point is set or reset.
void ASN1T_CRLDistPointsSyntax_traits::get(const ASN1T_CRLDistPointsSyntax& in,
                                           CCRLDistPointsSyntax& value) {
    const auto fill = [&in](CCRLDistPointsSyntax& points) {
        std::list<CDistributionPoint>& items =
            Velmor::Detail::UnderlyingList<CDistributionPoint>(points);
        ForEach<ASN1T_DistributionPoint>(in, [&](const ASN1T_DistributionPoint& element) {
            CDistributionPoint& point = NewEntry(items);
            const bool hasName = element.m.distributionPointPresent != 0;
            const bool fullName = element.distributionPoint.t == T_DistributionPointName_fullName;
            PutDecodedNames(point.m_fullName,
                            hasName && fullName ? &element.distributionPoint.fullName : nullptr);
            if (hasName && !fullName) {
                point.m_nameRelativeToCRLIssuer =
                    Velmor::Codec::Encode(element.distributionPoint.nameRelativeToCRLIssuer);
            } else {
                point.m_nameRelativeToCRLIssuer.reset();
            }
            point.m_reasons.reset();
            if (element.m.reasonsPresent) {
                point.m_reasons = ReasonMaskFromBits(element.reasons);
            }
            PutDecodedNames(point.m_cRLIssuer,
                            element.m.cRLIssuerPresent ? &element.cRLIssuer : nullptr);
        });
    };
    if (value.empty()) {
        try {
            fill(value);
        } catch (...) {
            value.clear();
            throw;
        }
        return;
    }
    CCRLDistPointsSyntax points;
    fill(points);
    value.swap(points);
}

// ---- Authority information access

void ASN1T_AuthorityInfoAccessSyntax_traits::set(ASN1CTXT* ctxt,
                                                 ASN1T_AuthorityInfoAccessSyntax& out,
                                                 const CAuthorityInfoAccessSyntax& value) {
    rtDListInit(&out);
    for (const CAccessDescription& description : value) {
        auto& element = AppendNew<ASN1T_AccessDescription>(ctxt, out);
        ASN1TObjId_traits::set(ctxt, element.accessMethod, description.get_accessMethod());
        ASN1T_GeneralName_traits::set(ctxt, element.accessLocation,
                                      description.get_accessLocation());
    }
}

void ASN1T_AuthorityInfoAccessSyntax_traits::get(const ASN1T_AuthorityInfoAccessSyntax& in,
                                                 CAuthorityInfoAccessSyntax& value) {
    CAuthorityInfoAccessSyntax descriptions;
    std::list<CAccessDescription>& items =
        Velmor::Detail::UnderlyingList<CAccessDescription>(descriptions);
    ForEach<ASN1T_AccessDescription>(in, [&](const ASN1T_AccessDescription& element) {
        CGeneralName location;
        ASN1T_GeneralName_traits::get(element.accessLocation, location);
        items.emplace_back(OidText(element.accessMethod).data(), location);
    });
    value.swap(descriptions);
}

// ---- Algorithm identifiers and integers

void ASN1T_AlgorithmIdentifier_traits::set(ASN1CTXT* ctxt, ASN1T_AlgorithmIdentifier& out,
                                           const CAlgorithmIdentifier& value) {
    ASN1TObjId_traits::set(ctxt, out.algorithm, value.get_algorithm());
    const CBlob& parameters = value.get_parameters();
    out.m.parametersPresent = parameters.cbData() != 0;
    out.parameters.data = CopyBytes(ctxt, parameters.pbData(), parameters.cbData());
    out.parameters.numocts = static_cast<OSUINT32>(parameters.cbData());
}

void ASN1T_AlgorithmIdentifier_traits::get(const ASN1T_AlgorithmIdentifier& in,
                                           CAlgorithmIdentifier& value) {
    value.put_algorithm(OidText(in.algorithm).data());
    // Absent and NULL parameters, nearly every identifier's, are copied from constants.
    static const CBlob kAbsent;
    static const unsigned char kNullDer[] = {0x05, 0x00};
    static const CBlob kNull(kNullDer, sizeof kNullDer);
    const ASN1OpenType& parameters = in.parameters;
    if (!in.m.parametersPresent) {
        value.put_parameters(kAbsent);
    } else if (parameters.numocts == 2 && parameters.data[0] == 0x05 && parameters.data[1] == 0) {
        value.put_parameters(kNull);
    } else {
        value.put_parameters(BlobOf(parameters.data, parameters.numocts));
    }
}

// ---- Certificates

void ASN1T__SeqOfCertificate_traits::set(ASN1CTXT* ctxt, ASN1T__SeqOfCertificate& out,
                                         const CertificateList& value) {
    rtDListInit(&out);
    const bool checked = value.checked();
    for (const CBlob& certificate : *value.get()) {
        // A certificate is written from the octets it is kept in, which outlive the
        // encoding; decoding it first refuses a blob that is not one, once per list.
        if (!checked) {
            ASN1BERDecodeBuffer buffer(certificate.pbData(), certificate.cbData());
            ASN1T_Certificate decoded;
            Velmor::Codec::Decode(buffer, decoded);
        }
        auto& element = AppendNew<ASN1T_Certificate>(ctxt, out);
        element.raw.data = certificate.pbData();
        element.raw.numocts = certificate.cbData();
    }
    value.markChecked();
}

void ASN1T__SeqOfCertificate_traits::get(const ASN1T__SeqOfCertificate& in,
                                         CertificateList& value) {
    auto certificates = std::make_unique<CBlobList>();
    ForEach<ASN1T_Certificate>(in, [&](const ASN1T_Certificate& element) {
        certificates->push_back(Velmor::Codec::Encode(element));
    });
    value.putDecoded(std::move(certificates));
}

// ---- Integers

void ASN1TDynBigInt_traits::set(ASN1CTXT* ctxt, ASN1TDynBigInt& out, const CBigInteger& value) {
    const CBlob& content = value.get_content();
    out.data = CopyBytes(ctxt, content.pbData(), content.cbData());
    out.numocts = static_cast<OSUINT32>(content.cbData());
}

void ASN1TDynBigInt_traits::get(const ASN1TDynBigInt& in, CBigInteger& value) {
    if (in.numocts == 0) {
        ATL::AtlThrow(CRYPT_E_ASN1_INTERNAL);
    }
    value.decode(CBlob(in.data, in.numocts));
}

CBigInteger DerIntegerToBigInteger(const ASN1OCTET* der, std::size_t size) {
    ASN1BERDecodeBuffer reader(der, size);
    BerReader integer(reader.getCtxtPtr(), der, size);
    ASN1TDynBigInt content;
    if (!integer.readBigInt(content) || integer.more()) {
        ATL::AtlThrow(CRYPT_E_ASN1_INTERNAL);
    }
    CBigInteger result;
    ASN1TDynBigInt_traits::get(content, result);
    return result;
}

} // namespace Velmor::ASN1
