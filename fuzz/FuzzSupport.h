#pragma once

#include <QByteArray>

#include <cstddef>
#include <cstdint>

// What every fuzz target shares: a Qt application object for the readers that need one, quiet
// logging (readers log what they refuse, which would drown the fuzzer's output) and the input
// as Qt bytes.
namespace FuzzSupport {

// Once per process; cheap to call on every input.
void setUp();

// The input, or nothing when it is longer than `maxSize`: inputs beyond a target's limit are
// not findings, the readers' own limits are tested below it.
bool accept(size_t size, size_t maxSize);

inline QByteArray bytes(const uint8_t* data, size_t size)
{
    return QByteArray(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size));
}

// Stops the run with a message when an invariant of a reader does not hold, so that the fuzzer
// keeps the input as a finding.
[[noreturn]] void fail(const char* what);

inline void check(bool condition, const char* what)
{
    if (!condition)
        fail(what);
}

} // namespace FuzzSupport

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);
