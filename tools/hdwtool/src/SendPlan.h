#pragma once
// Values to send, in rounds: every round sends each value once in order;
// `repeat` rounds (0: until stopped), `intervalMs` from the start of one round
// to the start of the next.

#include "Channel.h"

#include <cstdint>
#include <string>
#include <vector>

namespace hdwtool {

class SendPlan {
public:
    struct Value {
        Channel* Target = nullptr;
        Item Data;
    };

    SendPlan(std::vector<Value> values, uint64_t repeat, double intervalMs)
        : m_Values(std::move(values)),
          m_Repeat(repeat),
          m_IntervalMs(intervalMs)
    {}

    // Sends the rounds that are due at `nowSeconds`; false with a reason
    // when a write is refused. `sent` is called for each value sent.
    template <class F>
    bool Step(double nowSeconds, std::string& error, F&& sent)
    {
        while (!Done() && nowSeconds * 1000.0 >= double(m_Rounds) * m_IntervalMs) {
            for (const auto& v : m_Values) {
                if (!v.Target->Send(v.Data, error))
                    return false;
                sent(v);
            }
            ++m_Rounds;
            if (m_IntervalMs <= 0 && m_Rounds % 64 == 0)
                break; // let the caller read between large bursts
        }
        return true;
    }
    bool Done() const { return m_Values.empty() || (m_Repeat != 0 && m_Rounds >= m_Repeat); }
    uint64_t Rounds() const { return m_Rounds; }

private:
    std::vector<Value> m_Values;
    uint64_t m_Repeat;
    double m_IntervalMs;
    uint64_t m_Rounds = 0;
};

} // namespace hdwtool
