#pragma once
// A growable array on top of std::vector with the names the library uses.
// Not synchronised: the owner locks.

#include <HdwLib/core/KvxObject.h>

#include <cstdint>
#include <utility>
#include <vector>

template <typename T>
class CKVX_Vector : public CKVX_Object {
public:
    using container_type = std::vector<T>;
    using iterator = typename container_type::iterator;
    using const_iterator = typename container_type::const_iterator;

    CKVX_Vector() = default;
    explicit CKVX_Vector(unsigned length) : m_Items(length) {}
    CKVX_Vector(const CKVX_Vector&) = default;
    CKVX_Vector(CKVX_Vector&&) noexcept = default;
    CKVX_Vector& operator=(const CKVX_Vector&) = default;
    CKVX_Vector& operator=(CKVX_Vector&&) noexcept = default;
    ~CKVX_Vector() override = default;

    // Replaces the contents with `length` value-initialised elements.
    void Create(unsigned length)
    {
        m_Items.clear();
        m_Items.resize(length);
    }
    T& operator[](unsigned index) { return m_Items[index]; }
    const T& operator[](unsigned index) const { return m_Items[index]; }
    unsigned GetLength() const { return static_cast<unsigned>(m_Items.size()); }
    bool IsEmpty() const { return m_Items.empty(); }
    void DeleteAll() { m_Items.clear(); }
    CKVX_Vector& operator+=(const T& item)
    {
        m_Items.push_back(item);
        return *this;
    }
    CKVX_Vector& operator+=(T&& item)
    {
        m_Items.push_back(std::move(item));
        return *this;
    }
    T* GetData() { return m_Items.data(); }
    const T* GetData() const { return m_Items.data(); }

    iterator begin() { return m_Items.begin(); }
    iterator end() { return m_Items.end(); }
    const_iterator begin() const { return m_Items.begin(); }
    const_iterator end() const { return m_Items.end(); }
    container_type& Items() { return m_Items; }
    const container_type& Items() const { return m_Items; }

private:
    container_type m_Items;
};

class CKVX_Uint8Vector : public CKVX_Vector<uint8_t> {
public:
    using CKVX_Vector<uint8_t>::CKVX_Vector;
    CKVX_Uint8Vector() = default;
    CKVX_Uint8Vector(const uint8_t* data, unsigned length) { Items().assign(data, data + length); }
};
