#pragma once

#include <cstdint>

// Bytes of memory that this process may hope for: the machine's, or the limit of its control group
// if that is lower.
std::uint64_t AvailableMemory();

// Bytes of memory that this process holds at the moment; 0 if the system does not tell.
std::uint64_t ResidentMemory();

// Gives free heap memory back to the system. Returns 0, as nothing can go wrong.
int _heapmin();  // NOLINT(*-reserved-identifier,cert-dcl*): the name it has everywhere
