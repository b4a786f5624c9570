#include <gtest/gtest.h>
#include <pki/ocsp/algorithm_identifier.h>
#include <pki/ocsp/crl_dist_points.h>
#include <pki/ocsp/extensions.h>
#include <pki/ocsp/general_name.h>
#include <pki/ocsp/string_proxy.h>
#include <string>
#include <type_traits>
#include <utility>

#include "support/test_support.h"

namespace {

using namespace Velmor::ASN1;
using Velmor::CBlob;
using Velmor::CStringProxy;
using velmor_test::BlobOf;
using namespace Velmor::Win32;

TEST(CStringProxy, NullIsEmptyAndAMoveEmptiesItsSource) {
    EXPECT_STREQ(CStringProxy(nullptr).c_str(), "");
    CStringProxy source("1.2.3");
    CStringProxy moved(std::move(source));
    EXPECT_STREQ(source.c_str(), "");
    EXPECT_TRUE(moved == CStringProxy("1.2.3"));
    source = std::move(moved);
    EXPECT_STREQ(moved.c_str(), "");
    EXPECT_TRUE(source != moved);
}

// CAlgorithmIdentifierEx and others derive from it and are destroyed through it.
static_assert(std::has_virtual_destructor_v<CAlgorithmIdentifier>);

TEST(CAlgorithmIdentifier, EqualityLooksAtTheOidAndTheParameters) {
    const CBlob null = BlobOf("0500");
    const CAlgorithmIdentifier source("1.2.840.113549.1.1.11", &null);
    CAlgorithmIdentifier copy(source);
    copy.put_parameters(CBlob());
    EXPECT_TRUE(copy != source);
    copy.put_parameters(null);
    EXPECT_TRUE(copy == source);
    copy.put_algorithm("1.2.840.113549.1.1.1");
    EXPECT_TRUE(copy != source);
}

// A typed extension that keeps its value through the protected accessor.
class CounterExtension : public CExtValue {
  public:
    CounterExtension() : CExtValue("1.3.6.1.4.1.99.1") {}
    void put_count(unsigned char count) { value() = CBlob(&count, 1); }
};

TEST(CExtensions, FindGivesTheFirstExtensionWithTheOid) {
    CounterExtension counter;
    counter.put_count(7);
    CExtensions extensions;
    extensions.push_back(CExtension(counter, true));
    extensions.push_back(CExtension("2.5.29.19", false, BlobOf("3000")));
    extensions.push_back(CExtension("1.3.6.1.4.1.99.1", false, BlobOf("09")));

    const CExtension* found = std::as_const(extensions).find("1.3.6.1.4.1.99.1");
    EXPECT_EQ(found, &extensions.front());
    EXPECT_TRUE(found->get_critical());
    EXPECT_EQ(found->get_extnValue(), BlobOf("07"));
    EXPECT_EQ(extensions.find("2.5.29.19"), &*std::next(extensions.begin()));
    EXPECT_EQ(extensions.find("2.5.29.1"), nullptr);
    EXPECT_EQ(extensions.find(nullptr), nullptr);
}

TEST(CGeneralName, HoldsOneChoiceAtATime) {
    CGeneralName name;
    EXPECT_EQ(name.get_choice(), CGeneralName::none);
    name.put_directoryName(BlobOf("3000"));
    EXPECT_EQ(name.get_choice(), CGeneralName::directoryName);
    EXPECT_EQ(*name.get_directoryName(), BlobOf("3000"));
    EXPECT_EQ(name.get_iPAddress(), nullptr);

    name.put_dNSName("ocsp.example.com");
    EXPECT_EQ(name.get_directoryName(), nullptr);
    EXPECT_STREQ(name.get_dNSName(), "ocsp.example.com");
    EXPECT_EQ(name.get_uniformResourceIdentifier(), nullptr);

    name.put_other(CGeneralName::x400Address, BlobOf("a300"));
    EXPECT_EQ(name.get_dNSName(), nullptr);
    EXPECT_EQ(*name.get_other(), BlobOf("a300"));
    EXPECT_HRESULT_THROW(name.put_other(CGeneralName::dNSName, BlobOf("00")), E_INVALIDARG);
    EXPECT_EQ(name.get_choice(), CGeneralName::x400Address);
    EXPECT_EQ(*name.get_other(), BlobOf("a300"));

    // Equal only with the same choice, and the earlier choice leaves nothing behind.
    CGeneralName uri;
    uri.put_uniformResourceIdentifier("http://ocsp.example.com");
    CGeneralName mail;
    mail.put_rfc822Name("http://ocsp.example.com");
    EXPECT_TRUE(uri != mail);
    CGeneralName reused;
    reused.put_directoryName(BlobOf("3000"));
    reused.put_dNSName("a");
    CGeneralName fresh;
    fresh.put_dNSName("a");
    EXPECT_TRUE(reused == fresh);
}

TEST(CDistributionPoint, TheTwoNameAlternativesExcludeEachOther) {
    CDistributionPoint point;
    CGeneralName uri;
    uri.put_uniformResourceIdentifier("http://crl.example.com/ca.crl");
    CGeneralNames names;
    names.push_back(uri);
    point.put_fullName(&names);
    names.clear();
    ASSERT_NE(point.get_fullName(), nullptr);
    EXPECT_EQ(point.get_fullName()->size(), 1u) << "the point keeps a copy";

    const CBlob rdn = BlobOf("310b300906035504061302555300");
    point.put_nameRelativeToCRLIssuer(&rdn);
    EXPECT_EQ(point.get_fullName(), nullptr);
    EXPECT_EQ(*point.get_nameRelativeToCRLIssuer(), rdn);
    point.put_fullName(nullptr); // removing the absent alternative keeps the other
    EXPECT_NE(point.get_nameRelativeToCRLIssuer(), nullptr);
    point.put_fullName(&names);
    EXPECT_EQ(point.get_nameRelativeToCRLIssuer(), nullptr);
    EXPECT_TRUE(point.get_fullName()->empty());
}

} // namespace
