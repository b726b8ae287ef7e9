#include "pages/network_page.h"

#include "model/lease.h"

#include "base/ascii.h"
#include "kit/origin.h"

#include <algorithm>
#include <ctime>

namespace phone {
namespace {

constexpr const char* kAddress = "/servlet?p=network";

std::string_view hostHeader(kit::Request& request) {
    return request.variable("HTTP_HOST").value_or("");
}

// Returns the port of the request with its colon, as an address on the same port needs it; empty
// for the default port.
std::string portSuffix(kit::Request& request) {
    const std::string_view host = hostHeader(request);
    const std::size_t colon = host.rfind(':');
    const std::string_view port = colon != host.npos ? host.substr(colon + 1) : "";
    const bool isPort = !port.empty() && port.size() <= 5 &&
                        std::all_of(port.begin(), port.end(), base::isAsciiDigit);
    return isPort ? ":" + std::string(port) : "";
}

void addLease(kit::Variables& variables, const Lease& lease) {
    variables.set("leaseAddress", lease.address)
        .set("leaseNetmask", lease.netmask)
        .set("leaseGateway", lease.gateway)
        .set("leaseDns", lease.dns)
        .set("leaseServer", lease.server)
        .set("leaseEnd", localTimeText(std::time(nullptr) + lease.remaining.count()));
}

} // namespace

void NetworkPage::answer(kit::Request& request, kit::Response& response,
                         const kit::SignIn& signIn) {
    const std::string_view action = request.parameter("q").value_or("");
    if (!request.isPost() || (action != "confirm" && action != "undo")) {
        SettingsPage::answer(request, response, signIn);
    } else if (!mayChange(request, response, signIn)) {
        return;
    } else if (action == "confirm") {
        confirm(request, response);
    } else {
        undo(request, response, signIn);
    }
}

void NetworkPage::confirm(kit::Request& request, kit::Response& response) {
    const bool isConfirmed = m_phone.network.confirm(kit::hostName(hostHeader(request)));
    finishAt(kAddress, isConfirmed ? "networkConfirmed" : "networkNotConfirmed", request, response);
}

void NetworkPage::undo(kit::Request& request, kit::Response& response, const kit::SignIn& signIn) {
    if (m_phone.network.undo().done()) {
        finishAt(kAddress, "networkUndone", request, response);
    } else {
        showMessage(request, response, signIn, 500, "failed");
    }
}

void NetworkPage::addMore(kit::Request& request, kit::Variables& variables) const {
    if (const auto trial = m_phone.network.running()) {
        variables.set("trialAddress", trial->address)
            .set("trialPort", portSuffix(request))
            .set("trialSeconds", trial->remaining.count())
            .set("trialHere", kit::hostName(hostHeader(request)) == trial->address);
    } else if (const std::string undone = m_phone.network.undoneAddress(); !undone.empty()) {
        variables.set("undoneAddress", undone);
    }
    if (m_phone.device.state()->settings.network.mode == "dhcp") {
        addLease(variables, leaseAfter(m_phone.maintenance.upTime()));
    }
}

} // namespace phone
