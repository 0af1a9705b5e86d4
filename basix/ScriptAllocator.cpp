#include "ScriptAllocator_p.h"

#include <cstdlib>
#include <cstring>

namespace tvl::script {

SmallObjectPool::~SmallObjectPool()
{
    for (void* block : m_blocks)
        std::free(block);
}

void* SmallObjectPool::allocate(size_t size)
{
    const size_t sizeClass = classOf(size);
    if (FreeObject* object = m_free[sizeClass]) {
        m_free[sizeClass] = object->next;
        return object;
    }
    const size_t rounded = (sizeClass + 1) * Granularity;
    if (!m_cursor || size_t(m_end - m_cursor) < rounded) {
        char* block = static_cast<char*>(std::malloc(BlockSize));
        if (!block)
            return nullptr;
        m_blocks.push_back(block);
        m_cursor = block;
        m_end = block + BlockSize;
    }
    void* object = m_cursor;
    m_cursor += rounded;
    return object;
}

void SmallObjectPool::release(void* object, size_t size)
{
    const size_t sizeClass = classOf(size);
    auto* freed = static_cast<FreeObject*>(object);
    freed->next = m_free[sizeClass];
    m_free[sizeClass] = freed;
}

ScriptAllocator::ScriptAllocator(qint64 limit, RefusalHandler refused, void* owner)
    : m_limit(limit)
    , m_refused(refused)
    , m_owner(owner)
{
}

void* ScriptAllocator::allocate(void* userData, void* block, size_t oldSize, size_t newSize)
{
    auto* self = static_cast<ScriptAllocator*>(userData);
    const size_t previous = block ? oldSize : 0;
    if (newSize == 0) {
        if (block)
            self->release(block, previous);
        self->m_used -= previous;
        return nullptr;
    }
    if (newSize > previous && self->m_limit > 0
        && self->m_used - previous + newSize > size_t(self->m_limit)) {
        self->m_refused(self->m_owner);
        return nullptr;
    }
    void* resized = self->resize(block, previous, newSize);
    if (resized)
        self->m_used = self->m_used - previous + newSize;
    return resized;
}

void* ScriptAllocator::resize(void* block, size_t previous, size_t newSize)
{
    const bool wasSmall = SmallObjectPool::isSmall(previous);
    const bool small = SmallObjectPool::isSmall(newSize);
    if (block && wasSmall && small && SmallObjectPool::sameClass(previous, newSize))
        return block;
    if (block && !wasSmall && !small)
        return std::realloc(block, newSize);
    void* resized = small ? m_pool.allocate(newSize) : std::malloc(newSize);
    if (resized && block) {
        std::memcpy(resized, block, qMin(previous, newSize));
        release(block, previous);
    }
    return resized;
}

void ScriptAllocator::release(void* block, size_t size)
{
    if (SmallObjectPool::isSmall(size))
        m_pool.release(block, size);
    else
        std::free(block);
}

} // namespace tvl::script
