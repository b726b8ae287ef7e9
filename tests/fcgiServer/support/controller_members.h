// What a test needs to see inside a controller, by the places that the interface gives its
// members.
#ifndef CONTROLLER_MEMBERS_H
#define CONTROLLER_MEMBERS_H

#include "servlet_controller.h"

#include <list>
#include <vector>

// The pointers behind the virtual table: session factory, servlet container, listener container,
// plug-in loader.
inline void* controllerMember(const ServletController& controller, int index) {
    return reinterpret_cast<void* const*>(&controller)[1 + index];
}

// Nobody ever frees a listener. Tests do, to see other leaks.
class ListenersOf {
public:
    explicit ListenersOf(const ServletController& controller) {
        auto* const* container = static_cast<void**>(controllerMember(controller, 2));
        m_listeners = *static_cast<const std::list<void*>*>(container[1]);
    }
    ~ListenersOf() {
        for (void* listener : m_listeners)
            ::operator delete(listener);
    }
    ListenersOf(const ListenersOf&) = delete;
    ListenersOf& operator=(const ListenersOf&) = delete;

private:
    std::list<void*> m_listeners;
};

#endif
