// Recordings: calls on the library, and what it did, in one text file.
//
// A file is read from top to bottom. Lines:
//   # text                 nothing; a blank line ends a row
//   let NAME = TEXT        from here on, $NAME stands for the text
//   on WIRE LEVELS ...     for the rows that follow: cbor or records, and security levels 0,1,2,3
//   == title               begins a row: a fresh transport and a fresh device
//   reply BYTES            the secure application's next answer
//   fails CODE BYTES       the same, where the send gives a code
//   link CODE | no_buffer [AFTER] | capacity BYTES | versions A B C | gmtime N | driver OPEN IOCTL
//                          what the transport (or the system) does in this row: no shared buffer
//                          after so many, the room for a CBOR request, the call to gmtime that
//                          fails, the driver's errno of open and of ioctl
//   sweep FIRST..LAST      runs the row for each number, which is $n in it; `cut $n` behind a
//                          reply is its first bytes
//   vary                   runs the last call again with every pointer null, empty or without
//                          memory, one by one; of two such arguments only the result is shown
//   only HOST              the row is of one libcrypto, boringssl or openssl, or of hosts with
//   sizes
//                          of 64 bits, wide
//   call METHOD NAME=VALUE ...
//   > text                 what was recorded: the calls on the transport with what was sent, the
//                          result with the outputs that were set, the log
#pragma once

#include <string>
#include <vector>

namespace lumo::test {

using Lines = std::vector<std::string>;

// The file's lines with what the library does now in place of what was recorded. Throws
// std::runtime_error, with the line's number, for one that cannot be read.
Lines record(const Lines& lines);

}  // namespace lumo::test
