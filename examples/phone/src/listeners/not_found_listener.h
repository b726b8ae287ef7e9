#ifndef NOT_FOUND_LISTENER_H
#define NOT_FOUND_LISTENER_H

#include "page.h"

#include "kit/plugin.h"

namespace phone {

// Answers requests for pages that the phone does not have with status 404 and a page. The last
// listener: strangers are sent to the sign-in form, whatever they ask for.
class NotFoundListener final : public kit::Listener {
public:
    // `phone` must outlive the listener.
    explicit NotFoundListener(Phone& phone) : m_page(phone) {}

    bool admit(kit::Request& request, kit::Response& response) override;

private:
    class NotFoundPage final : public SignedInPage {
    public:
        explicit NotFoundPage(Phone& phone) : SignedInPage(phone) {}

    private:
        void answer(kit::Request& request, kit::Response& response,
                    const kit::SignIn& signIn) override {
            showMessage(request, response, signIn, 404, "notFound");
        }
    };

    NotFoundPage m_page;
};

} // namespace phone

#endif
