#pragma once

#include <cstdint>

namespace qz::common {

// A growable byte buffer of at most 50 MiB.  Copies are deep.  The bytes are followed by a zero byte as long as the
// capacity has room for one.
//
// A size or count that is negative, above the limit, or leads above it, makes an operation fail: nothing is then
// allocated or changed.  A null pointer stands for no bytes; with a count above 0 it fails too.  The bytes given to an
// operation may be the buffer's own.
//
// Threads: as any value.
class PacketBuffer {
public:
    static constexpr int32_t LIMIT = 52428800; // bytes

    PacketBuffer() = default;
    explicit PacketBuffer(int size);                      // as Allocate
    PacketBuffer(int size, const char* bytes, int count); // as Allocate, then Assign
    PacketBuffer(const PacketBuffer& other);
    virtual ~PacketBuffer();

    // An empty source leaves an empty buffer without capacity.
    PacketBuffer& operator=(const PacketBuffer& other);

    // Frees the bytes; capacity and length 0.
    void Clear();

    // Replaces the contents by a block of size zero bytes, none of them in use.
    bool Allocate(int size);

    // Grows the capacity to size, the new bytes zero; or, with a size below the length, cuts the length to it.  A size
    // between the two changes nothing.
    bool Resize(int size);

    // Replaces the contents.
    bool Assign(const char* bytes, int count);

    // Adds at the end, growing ahead by 2048 bytes.
    bool Append(const char* bytes, int count);

    // Writes at an offset, growing as Append does; the length only ever grows.  Bytes between the old length and the
    // offset are zero in memory that this buffer has not used before.
    bool CursorAppend(int cursor, const char* bytes, int count);

    // Says how many bytes are in use, after they were written through Data; at most the capacity.
    bool SetLength(int length);

    bool Empty() const { return m_Length < 1; }

    // Owned by the buffer, null without capacity; valid until the next operation that may grow it.
    char* Data() { return m_Data; }
    const char* Data() const { return m_Data; }
    int Length() const { return m_Length; }
    int Capacity() const { return m_Capacity; }

    // Whether the address lies within the capacity.
    bool Holds(const char* address) const;

    // A copy on the heap, capacity included, which the caller owns.
    PacketBuffer* Clone() const;

private:
    void Copy(const PacketBuffer& other);
    bool Detach(const char*& bytes, int count, PacketBuffer& copy) const;
    bool Put(int at, const char* bytes, int count);

    int32_t m_Capacity = 0;
    char* m_Data = nullptr; // calloc's and realloc's
    int32_t m_Length = 0;
};

} // namespace qz::common
