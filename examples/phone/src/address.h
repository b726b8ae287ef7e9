// The address of a page, to return to it after signing in or choosing a language.
#ifndef ADDRESS_H
#define ADDRESS_H

#include "kit/request.h"

#include <string>
#include <string_view>

namespace phone {

// Returns the part of the request's query that selects what the page shows, such as "acc=1", for
// isView(). Leaves out what asks for an action, and a view that is longer than kMaxViewBytes.
std::string viewOf(kit::Request& request);
constexpr std::size_t kMaxViewBytes = 200;

// Returns whether `view` may follow "/servlet?p=PAGE&": only then does it stay on that page, and
// ends neither the header nor the attribute that it is written in.
bool isView(std::string_view view);

// Returns the address of a page with a view, which may be empty.
std::string addressOf(std::string_view page, std::string_view view);

// Returns "PAGE&view=VIEW" for the parameters of another address that returns to the page, or only
// the page if `view` is empty.
std::string returnTo(std::string_view page, std::string_view view);

// Returns the value of the parameter "view", or an empty text if it is no view.
std::string_view viewAskedFor(kit::Request& request);

} // namespace phone

#endif
