#pragma once
// A list with a cursor, on top of std::list (stable iterators, O(1) insert and
// erase anywhere). The cursor interface is what the library's classes use:
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
#include <list>
#include <utility>

template <typename T>
class CKVX_List : public CKVX_Object {
public:
    using container_type = std::list<T>;
    using iterator = typename container_type::iterator;
    using const_iterator = typename container_type::const_iterator;

    CKVX_List() : m_Cursor(m_Items.end()) {}
    CKVX_List(const CKVX_List& other) : CKVX_Object(other), m_Items(other.m_Items), m_Cursor(m_Items.begin()) {}
    CKVX_List(CKVX_List&& other) noexcept : m_Items(std::move(other.m_Items)), m_Cursor(m_Items.begin())
    {
        other.m_Cursor = other.m_Items.end();
    }
    CKVX_List& operator=(const CKVX_List& other)
    {
        if (this != &other) {
            m_Items = other.m_Items;
            m_Cursor = m_Items.begin();
        }
        return *this;
    }
    CKVX_List& operator=(CKVX_List&& other) noexcept
    {
        if (this != &other) {
            m_Items = std::move(other.m_Items);
            m_Cursor = m_Items.begin();
            other.m_Items.clear();
            other.m_Cursor = other.m_Items.end();
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
            container_type copy = other.m_Items;
            m_Items.splice(m_Items.end(), copy);
        } else {
            m_Items.insert(m_Items.end(), other.m_Items.begin(), other.m_Items.end());
        }
        return *this;
    }

    // Puts the cursor on the first item.
    void ToStart() { m_Cursor = m_Items.begin(); }
    // Copies the item under the cursor into `out` and steps to the next one;
    // false (and `out` untouched) when the cursor is past the last item.
    bool operator>>(T& out)
    {
        if (m_Cursor == m_Items.end())
            return false;
        out = *m_Cursor;
        ++m_Cursor;
        return true;
    }
    // Steps the cursor once; false when it already was past the end.
    bool Next()
    {
        if (m_Cursor == m_Items.end())
            return false;
        ++m_Cursor;
        return true;
    }
    bool AtEnd() const { return m_Cursor == m_Items.end(); }
    // The item under the cursor, or null past the end.
    T* CurItem() { return m_Cursor == m_Items.end() ? nullptr : &*m_Cursor; }

    // Puts the cursor on the first item equal to `item`; false when none is.
    bool FindToStart(const T& item)
    {
        m_Cursor = std::find(m_Items.begin(), m_Items.end(), item);
        return m_Cursor != m_Items.end();
    }
    // Erases the item under the cursor; the cursor moves to the next item.
    bool DeleteItem()
    {
        if (m_Cursor == m_Items.end())
            return false;
        m_Cursor = m_Items.erase(m_Cursor);
        return true;
    }
    void DeleteAll()
    {
        m_Items.clear();
        m_Cursor = m_Items.end();
    }
    unsigned GetLength() const { return static_cast<unsigned>(m_Items.size()); }
    bool IsEmpty() const { return m_Items.empty(); }

    // Front access and removal, for queues.
    T* GetFirst() { return m_Items.empty() ? nullptr : &m_Items.front(); }
    bool RemoveFirst(T& out)
    {
        if (m_Items.empty())
            return false;
        if (m_Cursor == m_Items.begin())
            ++m_Cursor;
        out = std::move(m_Items.front());
        m_Items.pop_front();
        return true;
    }
    void PopFront()
    {
        if (m_Items.empty())
            return;
        if (m_Cursor == m_Items.begin())
            ++m_Cursor;
        m_Items.pop_front();
    }

    iterator begin() { return m_Items.begin(); }
    iterator end() { return m_Items.end(); }
    const_iterator begin() const { return m_Items.begin(); }
    const_iterator end() const { return m_Items.end(); }
    container_type& Items() { return m_Items; }
    const container_type& Items() const { return m_Items; }

private:
    container_type m_Items;
    iterator m_Cursor;
};
