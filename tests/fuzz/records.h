// FastCGI records, written and read the way a front server does: one after the other, none of them
// unusual.
#ifndef RECORDS_H
#define RECORDS_H

#include "sent_request.h"

#include <optional>
#include <string>
#include <string_view>

namespace fuzz {

// Returns the records of a request for one connection, with at most `pieceSize` bytes in each.
std::string recordsOf(const SentRequest& request, std::size_t pieceSize);

// Returns the first request in `bytes`, with the variable that libfcgi adds; nothing unless its
// records are whole, in the usual order and of a responder.
std::optional<SentRequest> requestIn(std::string_view bytes);

// Requires that `response` consists of whole records.
void requireRecords(std::string_view response);

// Returns the standard output of the first request that `response` answers. Requires that it is
// ended.
std::string outputIn(std::string_view response);

} // namespace fuzz

#endif
