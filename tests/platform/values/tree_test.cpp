// SPDX-License-Identifier: MIT
#include "nqbase/nqexception.h"
#include "support/listener.h"
#include "support/trace_capture.h"
#include "support/value_tree.h"
#include "values/tree.h"
#include "values/value.h"
#include "values/valuenumeric.h"
#include <gmock/gmock.h>

using support::EffectLog;
using support::Listener;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using namespace values;

namespace {

std::vector<std::string> paths(const Tree& tree, const QString& below = {})
{
    std::vector<std::string> names;
    for (const Tree::Entry& entry : tree.List(below))
        names.push_back(entry.path.toStdString());
    return names;
}

class TreeTest : public testing::Test {
protected:
    EffectLog log;
    Listener listener{log};
    Tree tree;
};

TEST_F(TreeTest, FindsAValueByItsPathWithAndWithoutALeadingSlash)
{
    const auto value = tree.Create<Value<bool>>("/DEVICE/KRT", "ON");
    EXPECT_EQ(tree.Find("/DEVICE/KRT/ON"), value);
    EXPECT_EQ(tree.Find("DEVICE/KRT/ON"), value);
    EXPECT_EQ(value->GetPathName(), QStringLiteral("/DEVICE/KRT/ON"));
}

TEST_F(TreeTest, IsCaseSensitiveAndExact)
{
    tree.Create<Value<bool>>("/DEVICE", "ON");
    for (const char* const path :
         {"/device/ON", "/DEVICE/On", "/DEVICE/ON/", "//DEVICE/ON", "/DEVICE", "", "/"})
        EXPECT_EQ(tree.Find(path), nullptr) << path;
}

struct ParentCase {
    const char* name;
    const char* parent;
    const char* path;
};

class TreeParent : public testing::TestWithParam<ParentCase> {};

TEST_P(TreeParent, TakesAValue)
{
    Tree tree;
    const auto value = tree.Create<Value<bool>>(GetParam().parent, "ON");
    EXPECT_EQ(value->GetPathName(), QString::fromLatin1(GetParam().path));
}

INSTANTIATE_TEST_SUITE_P(Cases, TreeParent,
                         testing::Values(ParentCase{"Plain", "/A/B", "/A/B/ON"},
                                         ParentCase{"SlashAtTheEnd", "/A/B/", "/A/B/ON"},
                                         ParentCase{"NoSlashAtTheFront", "A/B", "/A/B/ON"},
                                         ParentCase{"Root", "/", "/ON"}, ParentCase{"Nothing", "", "/ON"}),
                         [](const auto& test) { return test.param.name; });

TEST_F(TreeTest, RefusesEmptyNamesAndNamesThatExist)
{
    tree.Create<Value<bool>>("/A", "ON");
    tree.AddObserver(&listener);
    EXPECT_THROW(tree.Create<Value<bool>>("/A", ""), NQException);
    EXPECT_THROW(tree.Create<Value<bool>>("//A", "OFF"), NQException);
    EXPECT_THROW(tree.Create<Value<bool>>("/A//", "OFF"), NQException);
    EXPECT_THROW(tree.Create<Value<bool>>("/A", "B//C"), NQException);
    EXPECT_THROW(tree.Create<ValueNumeric<int>>("A/", "ON"), NQException);
    EXPECT_THAT(paths(tree), ElementsAre("/A/ON"));
    EXPECT_THAT(log.take(), IsEmpty());
}

TEST_F(TreeTest, LetsANameBeAValueAndAGroupInEitherOrder)
{
    tree.Create<Value<bool>>("/A", "KRT");
    tree.Create<Value<bool>>("/A/KRT", "ON");
    tree.Create<Value<bool>>("/B/KRT", "ON");
    tree.Create<Value<bool>>("/B", "KRT");
    EXPECT_THAT(paths(tree), ElementsAre("/A/KRT", "/A/KRT/ON", "/B/KRT", "/B/KRT/ON"));
}

TEST_F(TreeTest, AssertsForNullAndStaysAsItIs)
{
    support::TraceCapture traces;
    tree.Add("/A", nullptr);
    EXPECT_EQ(tree.GetCount(), 0U);
    EXPECT_THAT(traces.take(), ElementsAre(HasSubstr("assert value != NULL (values/tree:")));
}

TEST_F(TreeTest, TellsWhatComesAndGoes)
{
    tree.AddObserver(&listener);
    tree.Create<Value<bool>>("/A", "ON");
    EXPECT_THAT(log.take(), ElementsAre("update 7"));
    EXPECT_TRUE(tree.Remove("/A/ON"));
    EXPECT_THAT(log.take(), ElementsAre("update 7"));
    EXPECT_FALSE(tree.Remove("/A/ON"));
    EXPECT_THAT(log.take(), IsEmpty());
}

TEST_F(TreeTest, RemovesAGroupWithAllBelowAndNothingBeside)
{
    for (const char* const name : {"A", "A/B", "A/B/C", "AB"})
        tree.Create<Value<bool>>("/X", name);
    EXPECT_TRUE(tree.Remove("X/A/"));
    EXPECT_THAT(paths(tree), ElementsAre("/X/AB"));
    EXPECT_TRUE(tree.Remove("/"));
    EXPECT_EQ(tree.GetCount(), 0U);
}

TEST_F(TreeTest, LetsAValueLiveOnThatSomebodyHolds)
{
    const auto value = tree.Create<Value<bool>>("/A", "ON");
    tree.Remove("/A");
    value->SetValue(true);
    EXPECT_TRUE(value->GetValue());
    EXPECT_TRUE(value->GetPathName().isEmpty());
    tree.Add("/B", value);
    EXPECT_EQ(value->GetPathName(), QStringLiteral("/B/ON"));
}

TEST_F(TreeTest, TakesThePathsAlongWhenItDies)
{
    auto other = std::make_unique<Tree>();
    const auto value = other->Create<Value<bool>>("/A", "ON");
    other.reset();
    EXPECT_TRUE(value->GetPathName().isEmpty());
}

TEST_F(TreeTest, ListsValuesInTheOrderOfTheirPaths)
{
    for (const char* const name : {"C", "A/B", "B", "A/A"})
        tree.Create<ValueNumeric<int>>("/X", name, 5);
    EXPECT_THAT(paths(tree), ElementsAre("/X/A/A", "/X/A/B", "/X/B", "/X/C"));
    EXPECT_THAT(paths(tree, "/X/A"), ElementsAre("/X/A/A", "/X/A/B"));
    EXPECT_THAT(paths(tree, "X/B"), ElementsAre("/X/B"));
    EXPECT_THAT(paths(tree, "/Y"), IsEmpty());
    EXPECT_EQ(tree.List("/X/C").front().value->ToText(), QStringLiteral("5"));
}

TEST_F(TreeTest, FindsOnlyWhatHasTheWantedType)
{
    const auto value = tree.Create<ValueNumericWithOffset>("/A", "F");
    EXPECT_EQ(tree.Find<ValueNumericWithOffset>("/A/F"), value);
    EXPECT_EQ(tree.Find<ValueNumeric<double>>("/A/F"), value) << "a base is a type, too";
    EXPECT_EQ(tree.Find<ValueNumeric<int>>("/A/F"), nullptr);
    EXPECT_EQ(tree.Find<ValueNumeric<double>>("/A/G"), nullptr);
}

TEST(TreeInstance, IsNeverNullAndCanBeExchanged)
{
    Tree* const outer = Tree::Instance();
    ASSERT_NE(outer, nullptr);
    {
        const support::FreshValueTree fresh;
        EXPECT_NE(Tree::Instance(), outer);
        fresh->Create<Value<bool>>("/A", "ON");
        EXPECT_NE(Tree::Instance()->Find("/A/ON"), nullptr);
        const std::shared_ptr<Tree> old = Tree::Install(nullptr);
        EXPECT_EQ(old->GetCount(), 1U);
        EXPECT_EQ(Tree::Instance()->GetCount(), 0U) << "null stands for a new, empty tree";
    }
    EXPECT_EQ(Tree::Instance(), outer);
}

} // namespace
