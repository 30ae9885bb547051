#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

// To be included by one source file of a program: counts what all its threads and libraries ask the C
// library's heap for, operator new and Qt included.

inline std::atomic<std::uint64_t> allocations{0};

extern "C" {
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* memory, std::size_t size);

void* malloc(std::size_t size)
{
    allocations.fetch_add(1, std::memory_order_relaxed);
    return __libc_malloc(size);
}

void* calloc(std::size_t count, std::size_t size)
{
    allocations.fetch_add(1, std::memory_order_relaxed);
    return __libc_calloc(count, size);
}

void* realloc(void* memory, std::size_t size)
{
    allocations.fetch_add(1, std::memory_order_relaxed);
    return __libc_realloc(memory, size);
}
}
