#include <HdwLib/core/KvxList.h>

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

// The item under the cursor, -1 when the cursor is past the end.
int Cur(CKVX_List<int>& list)
{
    return list.CurItem() ? *list.CurItem() : -1;
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

TEST(ListCursor, StreamingVisitsEveryItemSeesAppendsThenStops)
{
    auto list = MakeList({1, 2});
    list.ToStart();
    int v = -1;
    ASSERT_TRUE(list >> v);
    EXPECT_EQ(v, 1);
    // An item appended during the walk is seen and does not move the cursor.
    list += 3;
    EXPECT_EQ(Cur(list), 2);
    ASSERT_TRUE(list >> v);
    ASSERT_TRUE(list >> v);
    EXPECT_EQ(v, 3);
    EXPECT_TRUE(list.AtEnd());
    EXPECT_EQ(Cur(list), -1);
    v = 99;
    EXPECT_FALSE(list >> v);
    EXPECT_EQ(v, 99) << "a failed step must leave the output untouched";
}

TEST(ListCursor, FindToStartThenDeleteItemErasesThatItemAndMovesToTheNext)
{
    auto list = MakeList({10, 20, 30, 20});
    ASSERT_TRUE(list.FindToStart(20));
    EXPECT_EQ(Cur(list), 20);
    ASSERT_TRUE(list.DeleteItem());
    EXPECT_EQ(Cur(list), 30);
    EXPECT_EQ(Drain(list), (std::vector<int>{10, 30, 20})) << "only the first match goes";
    // Deleting the last item leaves the cursor at the end, with nothing to delete.
    ASSERT_TRUE(list.FindToStart(20));
    ASSERT_TRUE(list.DeleteItem());
    EXPECT_EQ(Cur(list), -1);
    EXPECT_FALSE(list.DeleteItem());
    list.ToStart();
    EXPECT_FALSE(list.FindToStart(4));
    EXPECT_EQ(Cur(list), -1);
    EXPECT_FALSE(list.DeleteItem());
    ASSERT_TRUE(list.FindToStart(30));
    list.DeleteAll();
    list += 5;
    EXPECT_EQ(Cur(list), 5);
}

TEST(ListCursor, RemovingTheFrontKeepsTheCursorOnItsItem)
{
    auto list = MakeList({1, 2, 3});
    list.ToStart();
    int v = 0;
    ASSERT_TRUE(list.RemoveFirst(v));
    EXPECT_EQ(v, 1);
    EXPECT_EQ(Cur(list), 2) << "the cursor must not dangle on the removed item";
    ASSERT_TRUE(list >> v);
    EXPECT_EQ(v, 2);

    list = MakeList({1, 2, 3});
    ASSERT_TRUE(list.FindToStart(3));
    ASSERT_TRUE(list.RemoveFirst(v));
    EXPECT_EQ(Cur(list), 3);
    list.PopFront();
    EXPECT_EQ(Cur(list), 3);
    list.PopFront();
    EXPECT_EQ(Cur(list), -1);
    EXPECT_TRUE(list.IsEmpty());
    v = 7;
    EXPECT_FALSE(list >> v);
    EXPECT_FALSE(list.DeleteItem());
    EXPECT_FALSE(list.RemoveFirst(v));
    EXPECT_EQ(v, 7);
}

TEST(ListCopy, CopiesAreIndependentStartAtTheFirstItemAndSelfAppendDoubles)
{
    auto list = MakeList({1, 2, 3});
    ASSERT_TRUE(list.FindToStart(3));
    CKVX_List<int> copy(list), assigned;
    assigned = list;
    EXPECT_EQ(Cur(copy), 1);
    EXPECT_EQ(Cur(assigned), 1);
    copy.FindToStart(2);
    copy.DeleteItem();
    EXPECT_EQ(Cur(list), 3) << "the original's cursor is its own";
    list += list;
    EXPECT_EQ(Drain(list), (std::vector<int>{1, 2, 3, 1, 2, 3}));
}
