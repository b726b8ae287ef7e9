// What the phone knows about itself.
#ifndef DEVICE_STATE_H
#define DEVICE_STATE_H

#include <string>
#include <string_view>
#include <vector>

namespace phone {

// Somebody who may sign in. Lives as long as the DeviceState that it belongs to.
struct WebUser {
    const char* name;
    const char* password;
    const char* role;
    const char* language;
};

// One of the phone's own numbers.
struct PhoneLine {
    const char* label;
    const char* number;
};

// A network interface that is up; an address that it does not have is empty.
struct NetworkInterface {
    std::string name;
    std::string address;
    std::string hardwareAddress;
};

// Nothing here changes after construction: any number of threads may ask.
class DeviceState {
public:
    // The most interfaces that networkInterfaces() gives: a phone has two or three.
    static constexpr std::size_t kMaxInterfaces = 8;

    const char* model() const { return "Desk phone"; }
    const char* firmware() const;
    const std::vector<PhoneLine>& lines() const { return m_lines; }

    // The user with these credentials, or null.
    const WebUser* authenticate(std::string_view name, std::string_view password) const;

    // The interfaces as they are now, the loopback left out.
    std::vector<NetworkInterface> networkInterfaces() const;

    // How long the phone has been running, as "2 d 03:04:05".
    std::string upTime() const;

private:
    // What a phone leaves the factory with.
    const WebUser m_user{"admin", "admin", "administrator", "English"};
    const std::vector<PhoneLine> m_lines{{"Line 1", "1001"}, {"Line 2", "1002"}};
};

// `seconds`, which must not be negative, as "2 d 03:04:05".
std::string durationText(long seconds);

} // namespace phone

#endif
