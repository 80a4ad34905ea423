// What differs between operating systems: descriptors and the terminal.
#ifndef TOOLS_SYSTEM_H
#define TOOLS_SYSTEM_H

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <system_error>

constexpr int kStandardOutput = 1;
constexpr int kStandardError = 2;

// Makes sure that descriptors 0 to 2 are taken, so that no file or socket gets their number and receives what is meant
// for a stream that the caller has closed. A closed standard output stays one that cannot be written.
void ReserveStandardDescriptors();

bool IsTerminal(int descriptor);
int ProcessId();

// A new folder that only its owner can look into. False with the reason; file_exists when the name is taken.
bool MakePrivateFolder(const std::filesystem::path& path, std::error_code* code);

// A file for writing, created when it is missing, or -1 with errno. With mustBeNew an existing one is an error
// (EEXIST), otherwise it is emptied.
int OpenForWriting(const std::filesystem::path& path, bool mustBeNew);
// One write of at most count bytes; how many were written, or -1 with errno. EINTR is handed on: a signal may be the
// reason to stop.
int64_t WriteSome(int descriptor, const char* bytes, size_t count);
// False with errno when closing reveals that earlier writes failed.
bool CloseDescriptor(int descriptor);
// The same for standard output, which stays open.
bool FlushStandardOutput();

#endif
