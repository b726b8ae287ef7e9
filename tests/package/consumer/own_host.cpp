// Prints the number of sessions of a new server and exits.
#include <fcgi_server.h>
#include <servlet_controller.h>
#include <session_factory.h>

#include <cstdio>

int main() {
    FCGIServer server;
    std::printf("%d sessions\n", server.getController()->getSessionFactory()->sessionNum());
    return 0;
}
