#include <gtest/gtest.h>
#include <memory>
#include <pki/ocsp/algorithm_identifier.h>
#include <pki/ocsp/authority_info_access.h>
#include <pki/ocsp/crl_dist_points.h>
#include <pki/ocsp/extensions.h>
#include <pki/ocsp/general_name.h>
#include <pki/ocsp/string_proxy.h>
#include <string>
#include <utility>

#include "support/test_support.h"

namespace {

using namespace Velmor::ASN1;
using Velmor::CBlob;
using Velmor::CStringProxy;
using namespace Velmor::Win32;

CBlob BlobOf(std::string_view hex) { return CBlob(velmor_test::FromHex(hex)); }

TEST(CStringProxy, OwnsItsText) {
    EXPECT_STREQ(CStringProxy().c_str(), "");
    EXPECT_STREQ(CStringProxy(nullptr).c_str(), "");
    const CStringProxy source("1.2.3");
    CStringProxy copy(source);
    copy = "4.5";
    EXPECT_STREQ(source.c_str(), "1.2.3");
    EXPECT_EQ(std::string_view(copy), "4.5");
    EXPECT_EQ(copy.length(), 3u);
    CStringProxy moved(std::move(copy));
    EXPECT_STREQ(copy.c_str(), "");
    EXPECT_TRUE(moved == CStringProxy("4.5"));
    EXPECT_TRUE(moved != source);
}

// Tracks its own lifetime, to show destruction through the base works.
class RecordingAlgorithm : public CAlgorithmIdentifier {
  public:
    explicit RecordingAlgorithm(bool* destroyed) : m_destroyed(destroyed) {}
    ~RecordingAlgorithm() override { *m_destroyed = true; }
    void put_algorithm(const char* oid) override {
        CAlgorithmIdentifier::put_algorithm((std::string(oid) + ".1").c_str());
    }

  private:
    bool* m_destroyed;
};

TEST(CAlgorithmIdentifier, HoldsOidAndParametersDeeply) {
    const CAlgorithmIdentifier unset;
    EXPECT_STREQ(unset.get_algorithm(), "");
    EXPECT_TRUE(unset.get_parameters().empty());

    const CBlob null = BlobOf("0500");
    const CAlgorithmIdentifier source("1.2.840.113549.1.1.11", &null);
    CAlgorithmIdentifier copy(source);
    copy.put_parameters(CBlob());
    EXPECT_EQ(source.get_parameters(), null);
    EXPECT_TRUE(copy != source);
    copy.put_parameters(null);
    EXPECT_TRUE(copy == source);
    copy.put_algorithm("1.3.14.3.2.26");
    EXPECT_STREQ(source.get_algorithm(), "1.2.840.113549.1.1.11");
    EXPECT_TRUE(copy != source);

    bool destroyed = false;
    std::unique_ptr<CAlgorithmIdentifier> derived(new RecordingAlgorithm(&destroyed));
    derived->put_algorithm("1.2");
    EXPECT_STREQ(derived->get_algorithm(), "1.2.1");
    derived.reset();
    EXPECT_TRUE(destroyed);
}

// A typed extension that keeps its value through the protected accessor.
class CounterExtension : public CExtValue {
  public:
    CounterExtension() : CExtValue("1.3.6.1.4.1.99.1") {}
    void put_count(unsigned char count) { value() = CBlob(&count, 1); }
};

TEST(CExtensions, FindsAndCopiesExtensions) {
    CounterExtension counter;
    counter.put_count(7);
    CExtensions source;
    source.push_back(CExtension(counter, true));
    source.push_back(CExtension("2.5.29.19", false, BlobOf("3000")));
    source.push_back(CExtension("1.3.6.1.4.1.99.1", false, BlobOf("09")));

    const CExtension* found = std::as_const(source).find("1.3.6.1.4.1.99.1");
    ASSERT_NE(found, nullptr);
    EXPECT_EQ(found, &source.front());
    EXPECT_TRUE(found->get_critical());
    EXPECT_EQ(found->get_extnValue(), BlobOf("07"));
    EXPECT_EQ(source.find("2.5.29.15"), nullptr);
    EXPECT_EQ(source.find(nullptr), nullptr);

    CExtensions copy(source);
    copy.find("2.5.29.19")->put_critical(true);
    copy.front().put_extnValue(BlobOf("08"));
    EXPECT_FALSE(source.find("2.5.29.19")->get_critical());
    EXPECT_EQ(source.front().get_extnValue(), BlobOf("07"));
    EXPECT_TRUE(copy.front() != source.front());
    copy.front().put_extnValue(BlobOf("07"));
    EXPECT_TRUE(copy.front() == source.front());
}

TEST(CGeneralName, HoldsOneChoiceAtATime) {
    CGeneralName name;
    EXPECT_EQ(name.get_choice(), CGeneralName::none);
    EXPECT_EQ(name.get_dNSName(), nullptr);

    const CBlob nameDer = BlobOf("3000");
    name.put_directoryName(nameDer);
    EXPECT_EQ(name.get_choice(), CGeneralName::directoryName);
    ASSERT_NE(name.get_directoryName(), nullptr);
    EXPECT_EQ(*name.get_directoryName(), nameDer);
    EXPECT_EQ(name.get_iPAddress(), nullptr);

    name.put_dNSName("ocsp.example.com");
    EXPECT_EQ(name.get_directoryName(), nullptr);
    EXPECT_STREQ(name.get_dNSName(), "ocsp.example.com");
    EXPECT_EQ(name.get_uniformResourceIdentifier(), nullptr);

    name.put_iPAddress(BlobOf("c0a80001ffffff00"));
    EXPECT_EQ(name.get_dNSName(), nullptr);
    EXPECT_EQ(*name.get_iPAddress(), BlobOf("c0a80001ffffff00"));

    name.put_other(CGeneralName::x400Address, BlobOf("a300"));
    EXPECT_EQ(name.get_choice(), CGeneralName::x400Address);
    EXPECT_EQ(*name.get_other(), BlobOf("a300"));
    EXPECT_HRESULT_THROW(name.put_other(CGeneralName::dNSName, BlobOf("00")), E_INVALIDARG);
    EXPECT_EQ(name.get_choice(), CGeneralName::x400Address);
    EXPECT_EQ(*name.get_other(), BlobOf("a300"));

    name.put_registeredID("1.2.3");
    EXPECT_STREQ(name.get_registeredID(), "1.2.3");
    EXPECT_EQ(name.get_other(), nullptr);
}

TEST(CGeneralName, ComparesAndCopiesByValue) {
    CGeneralName uri;
    uri.put_uniformResourceIdentifier("http://ocsp.example.com");
    CGeneralName mail;
    mail.put_rfc822Name("http://ocsp.example.com");
    EXPECT_TRUE(uri != mail); // same text, other choice
    CGeneralName copy(uri);
    EXPECT_TRUE(copy == uri);
    copy.put_uniformResourceIdentifier("http://other");
    EXPECT_STREQ(uri.get_uniformResourceIdentifier(), "http://ocsp.example.com");
    EXPECT_TRUE(CGeneralName() == CGeneralName());

    CGeneralName reused;
    reused.put_directoryName(BlobOf("3000"));
    reused.put_dNSName("a");
    CGeneralName fresh;
    fresh.put_dNSName("a");
    EXPECT_TRUE(reused == fresh); // the earlier choice leaves nothing behind

    CGeneralNames names;
    names.push_back(uri);
    CGeneralNames namesCopy;
    namesCopy = names;
    namesCopy.front().put_dNSName("x");
    EXPECT_TRUE(names.front() == uri);
}

TEST(CDistributionPoint, OptionalFieldsAndTheNameChoice) {
    CDistributionPoint point;
    EXPECT_EQ(point.get_fullName(), nullptr);
    EXPECT_EQ(point.get_nameRelativeToCRLIssuer(), nullptr);
    EXPECT_EQ(point.get_reasons(), nullptr);
    EXPECT_EQ(point.get_cRLIssuer(), nullptr);

    CGeneralName uri;
    uri.put_uniformResourceIdentifier("http://crl.example.com/ca.crl");
    CGeneralNames names;
    names.push_back(uri);
    point.put_fullName(&names);
    names.clear();
    ASSERT_NE(point.get_fullName(), nullptr);
    EXPECT_EQ(point.get_fullName()->size(), 1u);

    const CBlob rdn = BlobOf("310b300906035504061302555300");
    point.put_nameRelativeToCRLIssuer(&rdn);
    EXPECT_EQ(point.get_fullName(), nullptr);
    EXPECT_EQ(*point.get_nameRelativeToCRLIssuer(), rdn);
    point.put_fullName(nullptr); // removing the absent alternative keeps the other
    EXPECT_NE(point.get_nameRelativeToCRLIssuer(), nullptr);

    const unsigned reasons =
        (1u << CDistributionPoint::keyCompromise) | (1u << CDistributionPoint::aACompromise);
    point.put_reasons(&reasons);
    EXPECT_EQ(*point.get_reasons(), 0x102u);
    point.put_fullName(&names);
    EXPECT_EQ(point.get_nameRelativeToCRLIssuer(), nullptr);
    EXPECT_TRUE(point.get_fullName()->empty());

    CCRLDistPointsSyntax points;
    points.push_back(point);
    CCRLDistPointsSyntax pointsCopy(points);
    pointsCopy.front().put_reasons(nullptr);
    pointsCopy.front().put_cRLIssuer(&names);
    EXPECT_EQ(*points.front().get_reasons(), 0x102u);
    EXPECT_EQ(points.front().get_cRLIssuer(), nullptr);
    EXPECT_NE(pointsCopy.front().get_cRLIssuer(), nullptr);
}

TEST(CAccessDescription, CopiesAreIndependent) {
    CGeneralName location;
    location.put_uniformResourceIdentifier("http://ocsp.example.com");
    const CAccessDescription ocsp("1.3.6.1.5.5.7.48.1", location);
    CAuthorityInfoAccessSyntax access;
    access.push_back(ocsp);
    CAuthorityInfoAccessSyntax copy(access);
    copy.front().put_accessMethod("1.3.6.1.5.5.7.48.2");
    EXPECT_TRUE(access.front() == ocsp);
    EXPECT_TRUE(copy.front() != ocsp);
    location.put_dNSName("example.com");
    copy.front().put_accessLocation(location);
    EXPECT_STREQ(access.front().get_accessLocation().get_uniformResourceIdentifier(),
                 "http://ocsp.example.com");
}

} // namespace
