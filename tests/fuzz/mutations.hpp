// The mutations the fuzzer makes of a valid call: one input, or the counts,
// or the host's behaviour during the call (an interruption, an allocation
// that fails).
#pragma once

#include <random>
#include <string>

#include "fuzz/fuzz.hpp"

namespace zvfuzz {

enum class MutationKind {
    None,
    Empty,        // an empty array of the same class, 0-by-0, 0-by-n or m-by-0
    Class,        // another class, values converted
    HostObject,   // a function handle, "gpuArray", "string" or stream object
    Short,        // one element (row, column) fewer
    Grow,         // one element (row, column) more
    Value,        // one element, or a scalar, set to NaN, Inf, 2^63, -1...
    AllValues,    // every element set to one such value
    Sparse,
    Complex,
    Shape,        // transposed, flattened or three-dimensional
    Text,         // replaced by a text: unknown, empty, long, non-ASCII
    Swap,         // two inputs change places
    Outputs,      // another numOutputs
    DropInputs,   // fewer inputs
    ExtraInputs,  // more inputs
    Interrupt,    // the host interrupts at the n-th poll
    AllocationFailure,  // the n-th allocation of the call fails
    Count
};

const char* kindName(MutationKind kind);

struct Mutation {
    MutationKind kind = MutationKind::None;
    std::string description;
    long interruptAtPoll = 0;    // armed for the call when > 0
    long failAllocationAt = 0;   // armed for the call when > 0
};

// Mutates `call` in place: one mutation, or now and then two.
Mutation mutate(Call& call, std::mt19937_64& rng);

}  // namespace zvfuzz
