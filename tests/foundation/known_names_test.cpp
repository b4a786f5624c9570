// Names this thread already found to be DER are taken as they stand by the reader; anything
// else is parsed, and BER is written again as DER.
#include "asn1/asn1_reader.h"
#include "asn1/pkix_types.h"
#include "foundation/asn1_traits.h"

#include <gtest/gtest.h>
#include <thread>

#include "support/test_support.h"

namespace {

using namespace Velmor;
using velmor_test::Bytes;
using velmor_test::FromHex;

// CN=Test CA1: SEQUENCE { SET { SEQUENCE { OID 2.5.4.3, UTF8String } } }.
const Bytes kDerName = FromHex("3013311130"
                               "0f0603550403"
                               "0c0854657374204341 31");
// The same Name with the outer length in the long form: BER, not DER.
const Bytes kBerName = FromHex("308113311130"
                               "0f0603550403"
                               "0c0854657374204341 31");

struct NameRead {
    int status = 0;
    bool parsed = false;  // the attributes were read
    bool keptRaw = false; // taken as known DER
    Bytes converted;      // what the Name converter gives
};

NameRead Read(const Bytes& input) {
    ASN1BERDecodeBuffer buffer(input.data(), input.size());
    Asn1Rt::BerReader reader(buffer.getCtxtPtr(), input.data(), input.size());
    ASN1T_Name name{};
    NameRead read;
    read.status = asn1D(reader, name);
    read.parsed = name.rdnSequence.count != 0;
    read.keptRaw = name.raw.numocts != 0;
    if (read.status == 0) {
        CBlob der;
        ASN1::ASN1T_Name_traits::get(name, der);
        read.converted.assign(der.begin(), der.end());
    }
    return read;
}

// Runs body on a thread of its own, whose list of known Names starts empty.
template <class Body> void OnFreshThread(Body body) { std::thread(body).join(); }

TEST(KnownDerNames, ADerNameIsParsedOnceThenTakenAsItStands) {
    OnFreshThread([] {
        const NameRead first = Read(kDerName);
        ASSERT_EQ(first.status, 0);
        EXPECT_TRUE(first.parsed);
        EXPECT_FALSE(first.keptRaw);
        EXPECT_EQ(first.converted, kDerName);

        const NameRead again = Read(kDerName);
        ASSERT_EQ(again.status, 0);
        EXPECT_FALSE(again.parsed);
        EXPECT_TRUE(again.keptRaw);
        EXPECT_EQ(again.converted, kDerName);
    });
}

TEST(KnownDerNames, BerIsNeverRememberedAndAlwaysWrittenAgain) {
    OnFreshThread([] {
        for (int round = 0; round < 2; ++round) {
            const NameRead read = Read(kBerName);
            ASSERT_EQ(read.status, 0);
            EXPECT_TRUE(read.parsed) << "round " << round;
            EXPECT_FALSE(read.keptRaw) << "round " << round;
            EXPECT_EQ(read.converted, kDerName) << "round " << round;
        }
    });
}

TEST(KnownDerNames, ACutOrChangedKnownNameFailsAsItWouldUnknown) {
    std::vector<int> coldStatus;
    std::vector<int> warmStatus;
    const auto readVariants = [](std::vector<int>& statuses) {
        for (std::size_t cut = 0; cut < kDerName.size(); ++cut) {
            statuses.push_back(Read(Bytes(kDerName.begin(), kDerName.begin() + cut)).status);
        }
        Bytes changed = kDerName;
        changed[2] = 0x30; // the SET's tag made a SEQUENCE's
        statuses.push_back(Read(changed).status);
    };
    OnFreshThread([&] { readVariants(coldStatus); });
    OnFreshThread([&] {
        ASSERT_EQ(Read(kDerName).status, 0); // now known
        readVariants(warmStatus);
    });
    EXPECT_EQ(warmStatus, coldStatus);
    for (int status : coldStatus) {
        EXPECT_LT(status, 0);
    }
}

} // namespace
