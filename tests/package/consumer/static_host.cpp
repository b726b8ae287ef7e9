// A host that has the container in itself: answers one request by the plug-in that a servlet.xml
// names, and tells where its own container keeps the mutex of the sessions.
#include <http_session.h>
#include <kit/testing/runner.h>

#include <iostream>

int main(int, char** argv) {
    kit::testing::Container container(argv[1]);
    std::cout << container.serve(kit::testing::get(argv[2])).body << &session_mutex << '\n';
}
