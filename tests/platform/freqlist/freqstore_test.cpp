// SPDX-License-Identifier: MIT
#include "freqlist/freqstore.h"
#include "nqbase/nqexception.h"
#include "support/value_tree.h"
#include "values/value.h"
#include <gmock/gmock.h>

namespace {

TEST(FreqStore, ShowsItsRangesInTheTreeThatIsInstalledWhenItIsFirstUsed)
{
    const support::FreshValueTree tree;
    FreqStore* const store = FreqStore::Instance();
    ASSERT_NE(store, nullptr);
    EXPECT_EQ(FreqStore::Instance(), store);
    EXPECT_EQ(store->GetLocalSuppressRange()->GetPathName(), QStringLiteral("/FREQSTORE/LOCALSUPPRESS"));
    EXPECT_EQ(store->GetGlobalSuppressRange()->GetPathName(), QStringLiteral("/FREQSTORE/GLOBALSUPPRESS"));
    EXPECT_EQ(tree->Find(store->GetLocalSuppressRange()->GetPathName()), store->GetLocalSuppressRange());
    EXPECT_EQ(tree->Find(store->GetGlobalSuppressRange()->GetPathName()), store->GetGlobalSuppressRange());
    EXPECT_NE(store->GetLocalSuppressRange(), store->GetGlobalSuppressRange());
}

TEST(FreqStore, HandsOutTheOneThatWasInstalled)
{
    const support::FreshValueTree tree;
    FreqStore* const old = FreqStore::Instance();
    values::Tree another;
    const auto installed = std::make_shared<FreqStore>(another);
    EXPECT_EQ(FreqStore::Install(installed).get(), old);
    EXPECT_EQ(FreqStore::Instance(), installed.get());
    EXPECT_EQ(another.GetCount(), 2U);
}

TEST(FreqStore, TakesRangesOverThatAreThereAlready)
{
    const support::FreshValueTree tree;
    const auto there = tree->Create<values::ValueCommentedRangeMap>("/FREQSTORE", "LOCALSUPPRESS");
    there->AddRange(1.0, 2.0);
    EXPECT_EQ(FreqStore::Instance()->GetLocalSuppressRange(), there);
}

TEST(FreqStore, RefusesATreeThatHasSomethingElseUnderItsNames)
{
    values::Tree tree;
    tree.Create<values::Value<bool>>("/FREQSTORE", "GLOBALSUPPRESS");
    EXPECT_THROW(FreqStore{tree}, NQException);
}

TEST(FreqStore, OfOneTestIsNotThatOfTheNext)
{
    FreqStore* const outer = FreqStore::Instance();
    {
        const support::FreshValueTree tree;
        FreqStore::Instance()->GetLocalSuppressRange()->AddRange(1.0, 2.0);
        EXPECT_NE(FreqStore::Instance(), outer);
    }
    EXPECT_EQ(FreqStore::Instance(), outer);
    EXPECT_EQ(outer->GetLocalSuppressRange()->GetCount(), 0U);
}

} // namespace
