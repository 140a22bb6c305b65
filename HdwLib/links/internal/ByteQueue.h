#pragma once
// Taking bytes from the front of a byte list (the receive queues of the links).

#include <HdwLib/core/KvxList.h>

namespace hdw::links {

// Copies up to `maxBytes` bytes from the front of `list` into `buffer` and
// removes them; returns how many.
inline unsigned TakeFront(CKVX_List<unsigned char>& list, unsigned char* buffer, unsigned maxBytes)
{
    auto& items = list.Items();
    auto it = items.begin();
    unsigned n = 0;
    while (n < maxBytes && it != items.end())
        buffer[n++] = *it++;
    items.erase(items.begin(), it);
    list.ToStart();
    return n;
}

// Appends `count` bytes at the end of `list`.
inline void Append(CKVX_List<unsigned char>& list, const unsigned char* data, unsigned count)
{
    auto& items = list.Items();
    items.insert(items.end(), data, data + count);
}

} // namespace hdw::links
