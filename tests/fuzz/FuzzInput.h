// Reading a fuzzer's bytes as a small script: numbers and slices taken from the front.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

class FuzzInput {
public:
    FuzzInput(const uint8_t* data, size_t size) : m_data(data), m_size(size) {}

    bool Empty() const { return m_size == 0; }
    size_t Left() const { return m_size; }
    uint8_t Byte() { return Empty() ? 0 : Take(1)[0]; }
    // Up to `count` bytes (fewer at the end).
    const uint8_t* Take(size_t count, size_t* taken = nullptr)
    {
        const uint8_t* at = m_data;
        count = count < m_size ? count : m_size;
        m_data += count;
        m_size -= count;
        if (taken != nullptr)
            *taken = count;
        return at;
    }
    std::string Text(size_t count)
    {
        size_t taken = 0;
        const uint8_t* at = Take(count, &taken);
        return std::string(reinterpret_cast<const char*>(at), taken);
    }
    std::string Rest() { return Text(m_size); }

private:
    const uint8_t* m_data;
    size_t m_size;
};
