// The byte buffer.  Tested in tests/common/LibraryTestBuffer.cpp.
#include "common/PacketBuffer.h"

#include <cstdlib>
#include <cstring>
#include <functional>

namespace qz::common {

namespace {

constexpr int32_t GROWTH = 2048; // beyond what is needed

} // namespace

PacketBuffer::PacketBuffer(int size) {
    Allocate(size);
}

PacketBuffer::PacketBuffer(int size, const char* bytes, int count) {
    Allocate(size);
    Assign(bytes, count);
}

PacketBuffer::PacketBuffer(const PacketBuffer& other) {
    if (!other.Empty())
        Copy(other);
}

PacketBuffer::~PacketBuffer() {
    free(m_Data);
}

PacketBuffer& PacketBuffer::operator=(const PacketBuffer& other) {
    if (this == &other)
        return *this;
    Clear();
    if (!other.Empty())
        Copy(other);
    return *this;
}

void PacketBuffer::Copy(const PacketBuffer& other) {
    if (!Allocate(other.m_Capacity) || other.Empty() || Assign(other.m_Data, other.m_Length))
        return;
    // At the limit there is no room for the zero byte that Assign adds.
    if (m_Data) {
        memcpy(m_Data, other.m_Data, static_cast<size_t>(other.m_Length));
        SetLength(other.m_Length);
    }
}

void PacketBuffer::Clear() {
    free(m_Data);
    m_Data = nullptr;
    m_Capacity = 0;
    m_Length = 0;
}

bool PacketBuffer::Allocate(int size) {
    if (size < 0 || size > LIMIT)
        return false;
    Clear();
    if (size == 0)
        return true;
    m_Data = static_cast<char*>(calloc(static_cast<size_t>(size), 1));
    if (!m_Data)
        return false;
    m_Capacity = size;
    return true;
}

bool PacketBuffer::Resize(int size) {
    if (size < 0 || size > LIMIT)
        return false;
    if (m_Capacity < 1)
        return Allocate(size);
    if (size < m_Length) {
        m_Data[size] = '\0';
        m_Length = size;
        return true;
    }
    if (size <= m_Capacity)
        return true;
    void* grown = realloc(m_Data, static_cast<size_t>(size));
    if (!grown)
        return false;
    m_Data = static_cast<char*>(grown);
    memset(m_Data + m_Length, 0, static_cast<size_t>(size - m_Length));
    m_Capacity = size;
    return true;
}

bool PacketBuffer::SetLength(int length) {
    if (length < 0 || length > m_Capacity)
        return false;
    m_Length = length;
    if (m_Length < m_Capacity)
        m_Data[m_Length] = '\0';
    return true;
}

bool PacketBuffer::Assign(const char* bytes, int count) {
    if (count < 0 || count > LIMIT || (!bytes && count > 0))
        return false;
    PacketBuffer own;
    if (!Detach(bytes, count, own) || !Resize(count + 1))
        return false;
    if (count > 0)
        memmove(m_Data, bytes, static_cast<size_t>(count));
    return SetLength(count);
}

bool PacketBuffer::Append(const char* bytes, int count) {
    return Put(m_Length, bytes, count);
}

bool PacketBuffer::CursorAppend(int cursor, const char* bytes, int count) {
    return Put(cursor, bytes, count);
}

// Growing moves this buffer's own bytes away and cutting overwrites them: they are worked on as a copy.
bool PacketBuffer::Detach(const char*& bytes, int count, PacketBuffer& copy) const {
    if (count == 0 || !Holds(bytes))
        return true;
    const bool copied = copy.Assign(bytes, count);
    bytes = copy.m_Data;
    return copied;
}

bool PacketBuffer::Put(int at, const char* bytes, int count) {
    if (at < 0 || count < 0 || (!bytes && count > 0))
        return false;
    PacketBuffer own;
    if (!Detach(bytes, count, own))
        return false;
    const int64_t end = static_cast<int64_t>(at) + count;
    if (end >= m_Capacity && (end + GROWTH > LIMIT || !Resize(static_cast<int>(end) + GROWTH)))
        return false;
    if (!m_Data)
        return false; // cannot be: the capacity is above end
    if (count > 0)
        memmove(m_Data + at, bytes, static_cast<size_t>(count));
    return end <= m_Length || SetLength(static_cast<int>(end));
}

bool PacketBuffer::Holds(const char* address) const {
    const std::less<const char*> before; // an order for any two pointers
    return m_Data && !before(address, m_Data) && before(address, m_Data + m_Capacity);
}

PacketBuffer* PacketBuffer::Clone() const {
    auto* clone = new PacketBuffer();
    clone->Copy(*this);
    return clone;
}

} // namespace qz::common
