#ifndef KESTRAV_TOOLS_NMEA_SENTENCE_H_
#define KESTRAV_TOOLS_NMEA_SENTENCE_H_

#include <cstddef>
#include <string_view>

// The parts of a satellite receiver's sentence: `$GNRMC,021417.00,A,...*4A`.

namespace kestrav::tool {

enum class SentenceChecksum { kNone, kRight, kWrong };

// `body`: what is between the first character and the `*`.
SentenceChecksum CheckSentence(std::string_view line, std::string_view& body);

// Talker and type, such as GNRMC, of a line that is a sentence; empty when it is none.
std::string_view SentenceAddress(std::string_view line);

// A field of a body, counted from the address, which is 0; empty when there are not so many.
std::string_view SentenceField(std::string_view body, std::size_t number);

}  // namespace kestrav::tool

#endif  // KESTRAV_TOOLS_NMEA_SENTENCE_H_
