#pragma once

#include <QtCore/QtGlobal>

#include <cstddef>
#include <vector>

namespace tvl::script {

// The interpreter allocates many small objects and frees them all when it closes; taking them
// from size classes carved out of larger blocks costs a fraction of malloc and free.
class SmallObjectPool
{
public:
    static constexpr size_t Granularity = 16;
    static constexpr size_t LargestSmall = 256;
    static constexpr size_t BlockSize = 32 * 1024;

    SmallObjectPool() = default;
    SmallObjectPool(const SmallObjectPool&) = delete;
    SmallObjectPool& operator=(const SmallObjectPool&) = delete;
    ~SmallObjectPool();

    static bool isSmall(size_t size) { return size <= LargestSmall; }
    static bool sameClass(size_t a, size_t b) { return classOf(a) == classOf(b); }

    void* allocate(size_t size);
    void release(void* object, size_t size);

private:
    struct FreeObject
    {
        FreeObject* next;
    };

    static size_t classOf(size_t size) { return size == 0 ? 0 : (size - 1) / Granularity; }

    FreeObject* m_free[LargestSmall / Granularity] = {};
    std::vector<void*> m_blocks;
    char* m_cursor = nullptr;
    char* m_end = nullptr;
};

/**
 * The allocator of one interpreter (a lua_Alloc with this object as its user data): it counts
 * the bytes the interpreter holds and refuses to grow past the limit.
 */
class ScriptAllocator
{
public:
    /// Called when growth is refused, before the interpreter learns of it.
    using RefusalHandler = void (*)(void* owner);

    ScriptAllocator(qint64 limit, RefusalHandler refused, void* owner);

    static void* allocate(void* userData, void* block, size_t oldSize, size_t newSize);

    /// Bytes held now.
    size_t used() const { return m_used; }
    /// 0 means no limit.
    qint64 limit() const { return m_limit; }

private:
    void* resize(void* block, size_t previous, size_t newSize);
    void release(void* block, size_t size);

    SmallObjectPool m_pool;
    size_t m_used = 0;
    const qint64 m_limit;
    const RefusalHandler m_refused;
    void* const m_owner;
};

} // namespace tvl::script
