#include "support/HeapUse.h"

#include <malloc.h>

#include <atomic>
#include <cstdlib>
#include <new>

namespace
{
std::atomic<std::size_t> inUse{0};
std::atomic<std::size_t> allocations{0};

void* take(std::size_t size)
{
    void* memory = std::malloc(size == 0 ? 1 : size);
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    inUse += ::malloc_usable_size(memory);
    ++allocations;
    return memory;
}

void giveBack(void* memory)
{
    inUse -= ::malloc_usable_size(memory);
    std::free(memory);
}
} // namespace

std::size_t heapInUse()
{
    return inUse;
}

std::size_t heapAllocations()
{
    return allocations;
}

void* operator new(std::size_t size)
{
    return take(size);
}

void* operator new[](std::size_t size)
{
    return take(size);
}

void operator delete(void* memory) noexcept
{
    giveBack(memory);
}

void operator delete[](void* memory) noexcept
{
    giveBack(memory);
}

void operator delete(void* memory, std::size_t) noexcept
{
    giveBack(memory);
}

void operator delete[](void* memory, std::size_t) noexcept
{
    giveBack(memory);
}
