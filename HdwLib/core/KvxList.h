#pragma once
// A list with a cursor, on top of std::deque: appending at the end and taking
// from the front are O(1) without a heap block per item, which is what the
// library's queues (received words, bytes, frames) do all day. Erasing in the
// middle is O(n). The cursor is a position, so appending never invalidates
// it; range-for iterators are the deque's (invalidated by appends). The
// cursor interface is what the library's classes use:
//
//     list.ToStart();
//     T item;
//     while (list >> item) { ... }        // copy the current item, step on
//
//     if (list.FindToStart(x)) list.DeleteItem();   // find, then erase at cursor
//
// Range-for over begin()/end() works as well. Not synchronised: the owner locks.

#include <HdwLib/core/KvxObject.h>

#include <algorithm>
#include <cstddef>
#include <deque>
#include <utility>

template <typename T>
class CKVX_List : public CKVX_Object {
public:
    using container_type = std::deque<T>;
    using iterator = typename container_type::iterator;
    using const_iterator = typename container_type::const_iterator;

    CKVX_List() = default;
    CKVX_List(const CKVX_List& other) : CKVX_Object(other), m_Items(other.m_Items), m_Cursor(0) {}
    CKVX_List(CKVX_List&& other) noexcept : m_Items(std::move(other.m_Items)), m_Cursor(0)
    {
        other.m_Items.clear();
        other.m_Cursor = 0;
    }
    CKVX_List& operator=(const CKVX_List& other)
    {
        if (this != &other) {
            m_Items = other.m_Items;
            m_Cursor = 0;
        }
        return *this;
    }
    CKVX_List& operator=(CKVX_List&& other) noexcept
    {
        if (this != &other) {
            m_Items = std::move(other.m_Items);
            m_Cursor = 0;
            other.m_Items.clear();
            other.m_Cursor = 0;
        }
        return *this;
    }
    ~CKVX_List() override = default;

    // Appends at the end; the cursor does not move.
    CKVX_List& operator+=(const T& item)
    {
        m_Items.push_back(item);
        return *this;
    }
    CKVX_List& operator+=(T&& item)
    {
        m_Items.push_back(std::move(item));
        return *this;
    }
    // Appends every item of another list.
    CKVX_List& operator+=(const CKVX_List& other)
    {
        if (&other == this) {
            const container_type copy = other.m_Items;
            m_Items.insert(m_Items.end(), copy.begin(), copy.end());
        } else {
            m_Items.insert(m_Items.end(), other.m_Items.begin(), other.m_Items.end());
        }
        return *this;
    }

    // Puts the cursor on the first item.
    void ToStart() { m_Cursor = 0; }
    // Copies the item under the cursor into `out` and steps to the next one;
    // false (and `out` untouched) when the cursor is past the last item.
    bool operator>>(T& out)
    {
        if (m_Cursor >= m_Items.size())
            return false;
        out = m_Items[m_Cursor];
        ++m_Cursor;
        return true;
    }
    // Steps the cursor once; false when it already was past the end.
    bool Next()
    {
        if (m_Cursor >= m_Items.size())
            return false;
        ++m_Cursor;
        return true;
    }
    bool AtEnd() const { return m_Cursor >= m_Items.size(); }
    // The item under the cursor, or null past the end.
    T* CurItem() { return m_Cursor >= m_Items.size() ? nullptr : &m_Items[m_Cursor]; }

    // Puts the cursor on the first item equal to `item`; false when none is.
    bool FindToStart(const T& item)
    {
        const auto it = std::find(m_Items.begin(), m_Items.end(), item);
        m_Cursor = static_cast<size_t>(it - m_Items.begin());
        return it != m_Items.end();
    }
    // Erases the item under the cursor; the cursor moves to the next item.
    bool DeleteItem()
    {
        if (m_Cursor >= m_Items.size())
            return false;
        m_Items.erase(m_Items.begin() + static_cast<std::ptrdiff_t>(m_Cursor));
        return true;
    }
    void DeleteAll()
    {
        m_Items.clear();
        m_Cursor = 0;
    }
    unsigned GetLength() const { return static_cast<unsigned>(m_Items.size()); }
    bool IsEmpty() const { return m_Items.empty(); }

    // Front access and removal, for queues.
    T* GetFirst() { return m_Items.empty() ? nullptr : &m_Items.front(); }
    bool RemoveFirst(T& out)
    {
        if (m_Items.empty())
            return false;
        out = std::move(m_Items.front());
        PopFront();
        return true;
    }
    // The cursor keeps its item (or, when that was the first, moves to the next).
    void PopFront()
    {
        if (m_Items.empty())
            return;
        m_Items.pop_front();
        if (m_Cursor > 0)
            --m_Cursor;
    }

    iterator begin() { return m_Items.begin(); }
    iterator end() { return m_Items.end(); }
    const_iterator begin() const { return m_Items.begin(); }
    const_iterator end() const { return m_Items.end(); }
    container_type& Items() { return m_Items; }
    const container_type& Items() const { return m_Items; }

private:
    container_type m_Items;
    size_t m_Cursor = 0;
};
