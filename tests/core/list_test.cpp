#include <HdwLib/core/KvxList.h>
#include <HdwLib/core/KvxVector.h>

#include <gtest/gtest.h>

#include <vector>

namespace {

CKVX_List<int> MakeList(std::initializer_list<int> items)
{
    CKVX_List<int> list;
    for (int i : items)
        list += i;
    return list;
}

std::vector<int> Drain(CKVX_List<int>& list)
{
    std::vector<int> out;
    list.ToStart();
    int v = 0;
    while (list >> v)
        out.push_back(v);
    return out;
}

} // namespace

TEST(ListCursor, StreamingVisitsEveryItemInOrderThenStops)
{
    auto list = MakeList({1, 2, 3});
    list.ToStart();
    int v = -1;
    ASSERT_TRUE(list >> v);
    EXPECT_EQ(v, 1);
    ASSERT_NE(list.CurItem(), nullptr);
    EXPECT_EQ(*list.CurItem(), 2);
    ASSERT_TRUE(list >> v);
    ASSERT_TRUE(list >> v);
    EXPECT_EQ(v, 3);
    EXPECT_TRUE(list.AtEnd());
    EXPECT_EQ(list.CurItem(), nullptr);
    v = 99;
    EXPECT_FALSE(list >> v);
    EXPECT_EQ(v, 99) << "a failed step must leave the output untouched";
}

TEST(ListCursor, AppendingDuringIterationIsSeenAndDoesNotMoveTheCursor)
{
    auto list = MakeList({1, 2});
    list.ToStart();
    int v = 0;
    ASSERT_TRUE(list >> v);
    list += 3;
    ASSERT_NE(list.CurItem(), nullptr);
    EXPECT_EQ(*list.CurItem(), 2);
    std::vector<int> rest;
    while (list >> v)
        rest.push_back(v);
    EXPECT_EQ(rest, (std::vector<int>{2, 3}));
}

TEST(ListCursor, FindToStartThenDeleteItemErasesThatItemAndMovesToTheNext)
{
    auto list = MakeList({10, 20, 30, 20});
    ASSERT_TRUE(list.FindToStart(20));
    ASSERT_NE(list.CurItem(), nullptr);
    EXPECT_EQ(*list.CurItem(), 20);
    ASSERT_TRUE(list.DeleteItem());
    ASSERT_NE(list.CurItem(), nullptr);
    EXPECT_EQ(*list.CurItem(), 30);
    EXPECT_EQ(Drain(list), (std::vector<int>{10, 30, 20})) << "only the first match goes";
    // Deleting the last item leaves the cursor at the end, with nothing to delete.
    ASSERT_TRUE(list.FindToStart(20));
    ASSERT_TRUE(list.DeleteItem());
    EXPECT_EQ(list.CurItem(), nullptr);
    EXPECT_FALSE(list.DeleteItem());
    // So does a search for a missing item.
    EXPECT_FALSE(list.FindToStart(4));
    EXPECT_EQ(list.CurItem(), nullptr);
    EXPECT_FALSE(list.DeleteItem());
    EXPECT_EQ(Drain(list), (std::vector<int>{10, 30}));
    // Every match goes when searched for until none is left, neighbours too.
    list += 30;
    list += 30;
    while (list.FindToStart(30))
        list.DeleteItem();
    EXPECT_EQ(Drain(list), (std::vector<int>{10}));
}

TEST(ListCursor, RemoveFirstWithTheCursorOnTheFirstItemMovesTheCursorOn)
{
    auto list = MakeList({1, 2, 3});
    list.ToStart();
    int v = 0;
    ASSERT_TRUE(list.RemoveFirst(v));
    EXPECT_EQ(v, 1);
    ASSERT_NE(list.CurItem(), nullptr) << "the cursor must not dangle on the removed item";
    EXPECT_EQ(*list.CurItem(), 2);
    ASSERT_TRUE(list >> v);
    EXPECT_EQ(v, 2);
    ASSERT_TRUE(list >> v);
    EXPECT_EQ(v, 3);
    EXPECT_FALSE(list >> v);
}

TEST(ListCursor, RemoveFirstLeavesACursorFurtherOnWhereItWas)
{
    auto list = MakeList({1, 2, 3});
    ASSERT_TRUE(list.FindToStart(3));
    int v = 0;
    ASSERT_TRUE(list.RemoveFirst(v));
    EXPECT_EQ(v, 1);
    ASSERT_NE(list.CurItem(), nullptr);
    EXPECT_EQ(*list.CurItem(), 3);
    list.PopFront();
    ASSERT_NE(list.CurItem(), nullptr);
    EXPECT_EQ(*list.CurItem(), 3);
    list.PopFront();
    EXPECT_EQ(list.CurItem(), nullptr);
    EXPECT_TRUE(list.IsEmpty());
}

TEST(ListCursor, DeleteAllResetsTheCursorAndAnEmptyListHasNone)
{
    auto list = MakeList({1, 2});
    list.ToStart();
    list.DeleteAll();
    int v = 7;
    EXPECT_EQ(list.GetLength(), 0u);
    EXPECT_EQ(list.CurItem(), nullptr);
    EXPECT_FALSE(list >> v);
    EXPECT_FALSE(list.DeleteItem());
    EXPECT_FALSE(list.RemoveFirst(v));
    EXPECT_EQ(v, 7);
    list += 5;
    EXPECT_EQ(Drain(list), (std::vector<int>{5}));
}

TEST(ListCopy, CopiesAreIndependentAndStartAtTheFirstItem)
{
    auto list = MakeList({1, 2, 3});
    ASSERT_TRUE(list.FindToStart(3));
    CKVX_List<int> copy(list);
    ASSERT_NE(copy.CurItem(), nullptr);
    EXPECT_EQ(*copy.CurItem(), 1);
    copy.FindToStart(2);
    copy.DeleteItem();
    EXPECT_EQ(list.GetLength(), 3u);
    EXPECT_EQ(*list.CurItem(), 3) << "the original's cursor is its own";

    CKVX_List<int> assigned;
    assigned = list;
    EXPECT_EQ(Drain(assigned), (std::vector<int>{1, 2, 3}));

    CKVX_List<int> moved(std::move(assigned));
    EXPECT_EQ(Drain(moved), (std::vector<int>{1, 2, 3}));

    moved += moved; // appending a list to itself doubles it
    EXPECT_EQ(Drain(moved), (std::vector<int>{1, 2, 3, 1, 2, 3}));
}

TEST(Vector, CreateReplacesTheContentsWithValueInitialisedElements)
{
    CKVX_Vector<int> v;
    v += 7;
    v += 8;
    v.Create(3);
    ASSERT_EQ(v.GetLength(), 3u);
    for (unsigned i = 0; i < v.GetLength(); ++i)
        EXPECT_EQ(v[i], 0);
    v.DeleteAll();
    EXPECT_TRUE(v.IsEmpty());

    const uint8_t bytes[] = {1, 2, 3};
    CKVX_Uint8Vector u(bytes, 3);
    ASSERT_EQ(u.GetLength(), 3u);
    EXPECT_EQ(u[2], 3);
}
