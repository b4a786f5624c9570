#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <gtest/gtest.h>
#include <limits>
#include <pki/ocsp/datetime.h>
#include <string>
#include <utility>

#include "support/test_support.h"

namespace {

using Velmor::CDateTime;
using namespace Velmor::Win32;

// 2024-02-29T12:34:56Z, as `date -u -d 2024-02-29T12:34:56Z +%s` gives it.
constexpr std::int64_t kLeapDay = 1709210096;

TEST(CDateTime, ParsesAcceptedForms) {
    const struct {
        const char* text;
        std::int64_t seconds;
        unsigned nanoseconds;
    } cases[] = {
        {"20240229123456Z", kLeapDay, 0},
        {"202402291234Z", kLeapDay - 56, 0},
        {"20240229123456.5Z", kLeapDay, 500000000},
        {"20240229123456,000000001Z", kLeapDay, 1},
        {"20240229123456.1234567899999Z", kLeapDay, 123456789},
        {"20240229123456+0130", kLeapDay - 5400, 0},
        {"202402291234-2359", kLeapDay - 56 + 86340, 0},
        {"20240229123456.25-0000", kLeapDay, 250000000},
        {"19691231235959Z", -1, 0},
        {"20000229000000Z", 951782400, 0},
        {"00000101000000Z", -62167219200, 0},
        {"99991231235959Z", 253402300799, 0},
    };
    for (const auto& c : cases) {
        const CDateTime parsed(c.text);
        EXPECT_EQ(parsed.seconds(), c.seconds) << c.text;
        EXPECT_EQ(parsed.nanoseconds(), c.nanoseconds) << c.text;
    }
}

TEST(CDateTime, RejectsEveryMalformedText) {
    // Missing or extra parts, impossible dates (2100 is no leap year) and times, fractions
    // without seconds or digits, out-of-range or mis-written offsets, other notations.
    const char* bad[] = {nullptr,
                         "",
                         "20240229123456",
                         "20240229123456Zx",
                         "2024022912345Z",
                         "2024022912Z",
                         "20240230120000Z",
                         "21000229000000Z",
                         "20241301000000Z",
                         "20240100000000Z",
                         "20240229240000Z",
                         "20240229123460Z",
                         "202402291234.5Z",
                         "20240229123456.Z",
                         "20240229123456+2400",
                         "20240229123456+0060",
                         "20240229123456z",
                         "2024-02-29T12:34:56Z",
                         " 20240229123456Z"};
    const CDateTime original(7, 8);
    for (const char* text : bad) {
        EXPECT_HRESULT_THROW(CDateTime{text}, CRYPT_E_ASN1_INTERNAL);
        CDateTime kept = original;
        EXPECT_FALSE(CDateTime::TryParseGeneralizedTime(text, kept)) << text;
        EXPECT_EQ(kept, original) << text;
    }
}

TEST(CDateTime, TheFifteenCharacterFormRefusesANonDigitAnywhere) {
    // The octets just below and above the digits, and ones that differ from a digit in the
    // high bits only, put in each digit position of an otherwise valid DER time.
    const std::string valid = "20240229123456Z";
    ASSERT_EQ(CDateTime(valid.c_str()), CDateTime(kLeapDay, 0));
    for (std::size_t position = 0; position < 14; ++position) {
        for (char wrong : {'/', ':', '\x10', '\x70', '\xB0', ' ', 'Z'}) {
            std::string text = valid;
            text[position] = wrong;
            CDateTime kept(7, 8);
            EXPECT_FALSE(CDateTime::TryParseGeneralizedTime(text.c_str(), kept))
                << "position " << position << " octet " << int(static_cast<unsigned char>(wrong));
            EXPECT_EQ(kept, CDateTime(7, 8));
        }
    }
    // Each field read from its own digits: a time with every digit different from its
    // neighbours.
    EXPECT_EQ(CDateTime("19871130214759Z"), CDateTime(565307279, 0));
}

TEST(CDateTime, FormatsUtcWithShortestFraction) {
    EXPECT_EQ(CDateTime().ToGeneralizedTime(true), "19700101000000Z");
    EXPECT_EQ(CDateTime(kLeapDay, 0).ToGeneralizedTime(true), "20240229123456Z");
    EXPECT_EQ(CDateTime(kLeapDay, 500000000).ToGeneralizedTime(true), "20240229123456.5Z");
    EXPECT_EQ(CDateTime(kLeapDay, 1).ToGeneralizedTime(true), "20240229123456.000000001Z");
    EXPECT_EQ(CDateTime(-1, 0).ToGeneralizedTime(true), "19691231235959Z");
    EXPECT_EQ(CDateTime(-1, 250000000).ToGeneralizedTime(true), "19691231235959.25Z");
    EXPECT_EQ(CDateTime(-62167219200, 0).ToGeneralizedTime(true), "00000101000000Z");
    EXPECT_EQ(CDateTime(253402300799, 0).ToGeneralizedTime(true), "99991231235959Z");
    for (std::int64_t outside :
         {std::int64_t{-62167219201}, std::int64_t{253402300800},
          std::numeric_limits<std::int64_t>::min(), std::numeric_limits<std::int64_t>::max()}) {
        EXPECT_HRESULT_THROW(CDateTime(outside, 0).ToGeneralizedTime(true), E_INVALIDARG);
    }
}

TEST(CDateTime, UtcTextRoundTripsThroughTheParser) {
    for (std::int64_t seconds : {std::int64_t{-62167219200}, std::int64_t{-11670912001},
                                 std::int64_t{-86401}, std::int64_t{0}, std::int64_t{68169600},
                                 kLeapDay, std::int64_t{4102444799}, std::int64_t{253402300799}}) {
        for (unsigned nanoseconds : {0u, 1u, 120000000u, 999999999u}) {
            const CDateTime time(seconds, nanoseconds);
            EXPECT_EQ(CDateTime(time.ToGeneralizedTime(true).c_str()), time)
                << time.ToGeneralizedTime(true);
        }
    }
}

// A thread remembers the last few DER times it read and wrote; more distinct times than it
// keeps, in turn, must come out as the arithmetic gives them each time, in both directions,
// and a remembered time must not answer for a neighbour with a fraction or out of range.
TEST(CDateTime, RecentTimesGiveTheSameAnswersAsTheArithmetic) {
    const std::pair<std::int64_t, const char*> times[] = {
        {kLeapDay, "20240229123456Z"},     {0, "19700101000000Z"},
        {-1, "19691231235959Z"},           {565307279, "19871130214759Z"},
        {253402300799, "99991231235959Z"}, {-62167219200, "00000101000000Z"},
        {4102444799, "20991231235959Z"},
    };
    for (int round = 0; round < 3; ++round) {
        for (const auto& [seconds, text] : times) {
            CDateTime parsed;
            ASSERT_TRUE(CDateTime::TryParseGeneralizedTime(text, parsed)) << text;
            EXPECT_EQ(parsed, CDateTime(seconds, 0)) << text;
            EXPECT_EQ(CDateTime(seconds, 0).ToGeneralizedTime(true), text);
            EXPECT_EQ(CDateTime(seconds, 500000000).ToGeneralizedTime(true),
                      std::string(text).replace(14, 1, ".5Z"));
        }
    }
    EXPECT_EQ(CDateTime("20240229123456Z"), CDateTime(kLeapDay, 0));
    CDateTime kept(7, 8);
    EXPECT_FALSE(CDateTime::TryParseGeneralizedTime("20240229123460Z", kept));
    EXPECT_FALSE(CDateTime::TryParseGeneralizedTime("20240229123456ZZ", kept));
    EXPECT_FALSE(CDateTime::TryParseGeneralizedTime("2024022912345Z", kept));
    EXPECT_EQ(kept, CDateTime(7, 8));
}

// Runs each test under a fixed POSIX TZ rule and restores the caller's TZ afterwards.
class CDateTimeLocal : public testing::Test {
  protected:
    void SetUp() override {
        const char* current = std::getenv("TZ");
        m_hadZone = current != nullptr;
        m_zone = m_hadZone ? current : "";
    }
    void TearDown() override {
        if (m_hadZone) {
            setenv("TZ", m_zone.c_str(), 1);
        } else {
            unsetenv("TZ");
        }
        tzset();
    }
    static std::string LocalText(const char* zone, const CDateTime& time) {
        setenv("TZ", zone, 1);
        return time.ToGeneralizedTime(false);
    }

  private:
    bool m_hadZone = false;
    std::string m_zone;
};

TEST_F(CDateTimeLocal, WritesLocalTimeWithItsOffset) {
    const CDateTime time(kLeapDay, 750000000);
    EXPECT_EQ(LocalText("UTC0", time), "20240229123456.75+0000");
    EXPECT_EQ(LocalText("EST5", time), "20240229073456.75-0500");
    EXPECT_EQ(LocalText("IST-5:30", time), "20240229180456.75+0530");
    EXPECT_EQ(LocalText("XYZ-14", CDateTime(kLeapDay, 0)), "20240301023456+1400");
    for (const char* zone : {"EST5", "IST-5:30", "XYZ-14"}) {
        EXPECT_EQ(CDateTime(LocalText(zone, time).c_str()), time) << zone;
    }
    EXPECT_HRESULT_THROW(LocalText("XYZ-14", CDateTime(253402300799, 0)), E_INVALIDARG);
}

TEST(CDateTime, ConvertsToAndFromTimePoints) {
    using namespace std::chrono;
    const system_clock::time_point point{
        duration_cast<system_clock::duration>(seconds(kLeapDay) + nanoseconds(5))};
    EXPECT_EQ(CDateTime(kLeapDay, 5).ToTimePoint(), point);
    EXPECT_EQ(CDateTime::FromTimePoint(point), CDateTime(kLeapDay, 5));

    const system_clock::time_point beforeEpoch{
        duration_cast<system_clock::duration>(nanoseconds(-1))};
    const CDateTime converted = CDateTime::FromTimePoint(beforeEpoch);
    EXPECT_EQ(converted.seconds(), -1);
    EXPECT_EQ(converted.nanoseconds(), 999999999u);
    EXPECT_EQ(converted.ToTimePoint(), beforeEpoch);
    EXPECT_HRESULT_THROW(CDateTime(std::numeric_limits<std::int64_t>::max(), 0).ToTimePoint(),
                         E_INVALIDARG);
}

TEST(CDateTime, OrdersBySecondsThenNanoseconds) {
    const CDateTime before(-1, 999999999);
    const CDateTime epoch(0, 0);
    const CDateTime later(0, 1);
    EXPECT_TRUE(before < epoch && epoch < later && before < later);
    EXPECT_TRUE(later > epoch && epoch >= epoch && epoch <= epoch);
    EXPECT_FALSE(epoch < epoch || epoch > epoch || epoch != CDateTime());
    EXPECT_TRUE(before != epoch);
    EXPECT_HRESULT_THROW(CDateTime(0, 1000000000), E_INVALIDARG);
}

} // namespace
