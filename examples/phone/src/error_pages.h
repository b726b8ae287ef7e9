#ifndef ERROR_PAGES_H
#define ERROR_PAGES_H

#include "page.h"

namespace phone {

// Shows the errors that the kit reports, see kit::ErrorPages, in the frame of the phone's pages:
// for signed-in users with its navigation, else as on the sign-in page. What scripts request is
// answered in plain text.
class ErrorPages final : private PageWriter {
public:
    // Shows the errors from now on. `phone` must outlive this object.
    explicit ErrorPages(Phone& phone);
    ~ErrorPages();
    ErrorPages(const ErrorPages&) = delete;
    ErrorPages& operator=(const ErrorPages&) = delete;

private:
    // Does what kit::ErrorPages::Show must do.
    bool showError(kit::Request& request, kit::Response& response, int status) const;

    // Returns the variables of the page.
    kit::Variables errorFrame(kit::Request& request, int status) const;
};

} // namespace phone

#endif
