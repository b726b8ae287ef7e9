// A listener that opens a door when another program sends /servlet?command=open.
#ifndef DOOR_LISTENER_H
#define DOOR_LISTENER_H

#include <kit/container_rules.h>
#include <kit/plugin.h>
#include <web_debug.h>

#include <string>
#include <utility>

class DoorListener final : public kit::Listener {
public:
    // `sender` is the address of the program that may open the door.
    explicit DoorListener(std::string sender) : m_sender(std::move(sender)) {}

private:
    bool admit(kit::Request& request, kit::Response& response) override {
        const auto event = kit::eventOf(request);
        if (!event) {
            return true; // a request for a page
        }
        if (request.remoteAddress() != m_sender) {
            response.status(403).text("This address may not send events.\n");
        } else if (event->name != "command" || event->value != "open") {
            response.status(400).text("Unknown command.\n");
        } else {
            WebDebug::getInstance()->info("The door opens.");
            response.text("OK\n");
        }
        return false;
    }

    const std::string m_sender;
};

#endif
