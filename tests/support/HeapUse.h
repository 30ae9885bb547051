#pragma once

#include <cstddef>

/// Bytes that operator new has given out in this process and not got back yet.
std::size_t heapInUse();

/// How often operator new has been called in this process.
std::size_t heapAllocations();
