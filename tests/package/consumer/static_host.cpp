// A host with the container inside. Call it with a servlet.xml and a URL: prints the plug-in's
// answer to the URL, and the address of session_mutex in its own container.
#include <http_session.h>
#include <kit/testing/runner.h>

#include <iostream>

int main(int, char** argv) {
    kit::testing::Container container(argv[1]);
    std::cout << container.serve(kit::testing::get(argv[2])).body << &session_mutex << '\n';
}
