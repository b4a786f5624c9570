#include <cstdio>
#include <gtest/gtest.h>
#include <iterator>
#include <pki/ocsp/blob.h>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "foundation/dll_list_impl.h"
#include "support/test_support.h"

namespace {

using Velmor::CBlob;
using Velmor::CBlobList;
using Texts = std::vector<std::string>;

// Shows the list object that impl() points to.
class InspectableBlobList : public CBlobList {
  public:
    const void* list_object() const { return impl(); }
};

CBlobList ListOf(const Texts& texts) {
    CBlobList list;
    for (const std::string& text : texts) {
        list.push_back(CBlob(text));
    }
    return list;
}

Texts TextsOf(const CBlobList& list) {
    Texts texts;
    for (const CBlob& blob : list) {
        texts.emplace_back(blob.to_string_view());
    }
    return texts;
}

} // namespace

// A named namespace, so that the explicit instantiation below has external linkage.
namespace dll_list_test {

// An element whose copy constructor fails once a budget of copies is spent.
struct Fragile {
    static inline int copiesLeft = -1; // negative: unlimited
    int value = 0;

    Fragile() = default;
    explicit Fragile(int v) : value(v) {}
    Fragile(const Fragile& other) : value(other.value) {
        if (copiesLeft == 0) {
            throw std::runtime_error("copy failed");
        }
        copiesLeft -= copiesLeft > 0 ? 1 : 0;
    }
    Fragile& operator=(const Fragile&) = default;
};

} // namespace dll_list_test

template class Velmor::CDllList<dll_list_test::Fragile>;

namespace {

using dll_list_test::Fragile;

class InspectableFragileList : public Velmor::CDllList<Fragile> {
  public:
    const void* list_object() const { return impl(); }
};

TEST(CDllList, CopiesAreIndependentAndOnlySelfAssignmentKeepsTheListObject) {
    InspectableBlobList target;
    target.push_back(CBlob(std::string_view("old")));
    const void* before = target.list_object();
    const CBlob* element = &target.front();
    CBlobList& alias = target;
    alias = target;
    EXPECT_EQ(target.list_object(), before);
    EXPECT_EQ(&target.front(), element);

    InspectableBlobList source;
    source.push_back(CBlob(std::string_view("a")));
    source.push_back(CBlob(std::string_view("b")));
    static_cast<CBlobList&>(target) = source;
    EXPECT_NE(target.list_object(), before);
    EXPECT_NE(target.list_object(), source.list_object());
    CBlobList copy(source);
    copy.push_back(CBlob(std::string_view("c")));
    copy.front().resize_to(0);
    target.back().reverse();
    target.back().resize_to(0);
    EXPECT_EQ(TextsOf(source), (Texts{"a", "b"}));
    EXPECT_EQ(TextsOf(target), (Texts{"a", ""}));
    EXPECT_EQ(TextsOf(copy), (Texts{"", "b", "c"}));

    // A swap exchanges the elements; each list keeps its list object.
    before = target.list_object();
    const void* sourceObject = source.list_object();
    target.push_back(CBlob(std::string_view("x")));
    target.swap(source);
    EXPECT_EQ(target.list_object(), before);
    EXPECT_EQ(source.list_object(), sourceObject);
    EXPECT_EQ(TextsOf(target), (Texts{"a", "b"}));
    EXPECT_EQ(TextsOf(source), (Texts{"a", "", "x"}));
}

TEST(CDllList, AssignAndResizeEdgeCases) {
    CBlobList list = ListOf({"x"});
    list.assign(2, list.front());
    EXPECT_EQ(TextsOf(list), (Texts{"x", "x"}));

    CBlobList grown;
    grown.resize(3);
    EXPECT_EQ(TextsOf(grown), (Texts{"", "", ""}));
    grown.front() = CBlob(std::string_view("first"));
    grown.resize(1);
    EXPECT_EQ(TextsOf(grown), (Texts{"first"}));
    grown.resize(3, CBlob(std::string_view("z")));
    EXPECT_EQ(TextsOf(grown), (Texts{"first", "z", "z"}));
    grown.assign(0, CBlob());
    EXPECT_TRUE(grown.empty());
}

TEST(CDllList, InsertEraseAndEndsKeepOrder) {
    CBlobList list = ListOf({"b", "e"});
    auto at = list.insert(std::next(list.begin()), CBlob(std::string_view("c")));
    EXPECT_EQ(at->to_string_view(), "c");
    list.insert(list.end(), 2, CBlob(std::string_view("f")));
    list.push_front(CBlob(std::string_view("a")));
    EXPECT_EQ(TextsOf(list), (Texts{"a", "b", "c", "e", "f", "f"}));

    auto following = list.erase(std::next(list.begin()));
    EXPECT_EQ(following->to_string_view(), "c");
    auto last = std::prev(list.end());
    EXPECT_TRUE(list.erase(std::next(following), last) == last);
    list.pop_back();
    list.pop_front();
    EXPECT_EQ(TextsOf(list), (Texts{"c"}));
    list.clear();
    EXPECT_TRUE(list.empty());

    const CBlobList reversed = ListOf({"1", "2", "3"});
    Texts backwards;
    for (auto it = reversed.rbegin(); it != reversed.rend(); ++it) {
        backwards.emplace_back(it->to_string_view());
    }
    EXPECT_EQ(backwards, (Texts{"3", "2", "1"}));
}

TEST(CDllList, AddingPastMaxSizeThrowsAndLeavesListUnchanged) {
    CBlobList list = ListOf({"a"});
    const CBlob v(std::string_view("v"));
    const auto n = list.max_size();
    auto expectTooLong = [&](const char* what, auto operation) {
        try {
            operation();
            ADD_FAILURE() << "no length_error from " << what;
        } catch (const std::length_error& e) {
            EXPECT_STREQ(e.what(), "list<T> too long") << what;
        }
        EXPECT_EQ(TextsOf(list), (Texts{"a"})) << what;
    };
    expectTooLong("insert", [&] { list.insert(list.begin(), n, v); });
    expectTooLong("assign", [&] { list.assign(n, v); });
    expectTooLong("resize", [&] { list.resize(n + 1); });
    expectTooLong("resize with value", [&] { list.resize(n + 1, v); });
}

TEST(CDllList, FailedElementCopyLeavesAnEmptyValidList) {
    InspectableFragileList target;
    target.push_back(Fragile(1));
    InspectableFragileList source;
    source.push_back(Fragile(2));
    source.push_back(Fragile(3));
    const void* before = target.list_object();

    Fragile::copiesLeft = 1;
    EXPECT_THROW(static_cast<Velmor::CDllList<Fragile>&>(target) = source, std::runtime_error);
    Fragile::copiesLeft = 0;
    EXPECT_THROW(source.push_back(Fragile(4)), std::runtime_error);
    Fragile::copiesLeft = -1;

    EXPECT_TRUE(target.empty());
    EXPECT_EQ(target.list_object(), before);
    ASSERT_EQ(source.size(), 2u);
    EXPECT_EQ(source.back().value, 3);
    target.push_back(Fragile(5));
    EXPECT_EQ(target.front().value, 5);
}

// Unwinds with the name of the member that reported.
void ThrowingHandler(const char*, const char* function, const char*, unsigned) {
    throw std::string(function);
}

TEST(CDllList, MisuseReachesTheInstalledHandler) {
    EXPECT_EQ(Velmor::SetInvalidParameterHandler(ThrowingHandler), nullptr);
    CBlobList list = ListOf({"a"});
    CBlobList other = ListOf({"b"});
    auto reportOf = [](auto operation) {
        try {
            operation();
        } catch (const std::string& function) {
            return function;
        }
        return std::string("no report");
    };
    EXPECT_EQ(reportOf([&] { list.erase(list.end()); }), "erase");
    EXPECT_EQ(reportOf([&] { list.erase(other.begin()); }), "erase");
    EXPECT_EQ(reportOf([&] { list.erase(list.end(), list.begin()); }), "erase");
    EXPECT_EQ(reportOf([&] { list.insert(other.begin(), CBlob()); }), "insert");
    EXPECT_EQ(reportOf([&] { list.insert(other.begin(), 2, CBlob()); }), "insert");
    EXPECT_EQ(TextsOf(list), (Texts{"a"}));
    list.clear();
    EXPECT_EQ(reportOf([&] { list.pop_back(); }), "pop_back");
    EXPECT_EQ(reportOf([&] { std::as_const(list).back(); }), "back");
    EXPECT_EQ(Velmor::SetInvalidParameterHandler(nullptr), &ThrowingHandler);
}

void ReturningHandler(const char* expression, const char* function, const char*, unsigned) {
    std::fprintf(stderr, "handler saw %s in %s\n", expression, function);
}

TEST(CDllListDeathTest, DefaultHandlerReportsAndAborts) {
    CBlobList list;
    CBlobList other = ListOf({"b"});
    EXPECT_DEATH(list.front(), "invalid parameter in front .*!empty\\(\\)");
    EXPECT_DEATH(list.insert(other.begin(), CBlob()), "invalid parameter in insert");
}

TEST(CDllListDeathTest, ReturningHandlerStillAborts) {
    EXPECT_DEATH(
        {
            Velmor::SetInvalidParameterHandler(ReturningHandler);
            CBlobList().pop_front();
        },
        "handler saw !empty\\(\\) in pop_front");
}

} // namespace
