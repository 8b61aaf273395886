#pragma once

#include <fmt/core.h>

#include <cstdint>
#include <string>
#include <string_view>

#include "oru/error_code.hpp"
#include "oru/types.hpp"
#include "shared/exit_status.hpp"

namespace koruone {

/// The name of a code as programs write it, "ERROR_CODE 99" for a value that is not listed.
std::string codeName(oru::ERROR_CODE code);

/// What an operation was about, so that the advice fits it.
enum class Subject { CAMERA, RECORDING, STREAM, RECORDER, SENDER };
/// Of an operation on the opened input.
Subject subjectOf(oru::InputKind input);

/// One sentence on standard error: "koruone: <what failed>: <reason> (<code>); <what to do>." A reason that says itself
/// what to do, behind a semicolon, replaces the advice; without a reason the code stands alone.
void complain(oru::ERROR_CODE code, std::string_view what, Subject subject, std::string_view reason);
/// With the reason that the library has for the operation that failed last on this thread.
void complain(oru::ERROR_CODE code, std::string_view what, Subject subject = Subject::CAMERA);

void writeComplaint(std::string_view text);

/// One sentence on standard error that has no code: a file, the disk, the command line.
template <class... Arguments>
void complain(fmt::format_string<Arguments...> format, Arguments&&... arguments) {
    writeComplaint(fmt::format(format, std::forward<Arguments>(arguments)...));
}

/// "1 frame", "2 frames".
std::string counted(uint64_t count, const char* noun);

/// "1 reconnection, 0 inertial samples dropped, ended by the sender".
std::string streamText(const oru::StreamInputStatus& status);

/// Writes to standard output, where results go. A failure is remembered by the stream; finishOutput reports it.
void writeOutput(std::string_view text);
/// Whether everything written so far was taken; false after the reader went away or the disk filled up.
bool outputWorks();
/// Flushes standard output. A loss of results turns EXIT_OK into EXIT_FAILED, said on standard error unless the reader
/// simply went away.
ExitStatus finishOutput(ExitStatus status);

}  // namespace koruone
