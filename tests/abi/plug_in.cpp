// What a plug-in has to do with the container, for scripts/abi: the compiler tells all about these
// classes where they are used, and the container itself makes neither a servlet nor a listener.
#include "HttpListener.h"
#include "HttpRequest.h"
#include "HttpResponse.h"
#include "HttpServlet.h"
#include "HttpSession.h"

void makes(HttpServlet& /*servlet*/) {}
void makes(HttpListener& /*listener*/) {}
void isHanded(HttpRequest& /*request*/) {}
void isHanded(HttpResponse& /*response*/) {}
void isHanded(HttpSession& /*session*/) {}

// What a plug-in's own operations take is told by the names of these symbols alone; what the others
// take, by the container's.
namespace servlet {
void init(decltype(&HttpServlet::init) /*operation*/) {}
void service(decltype(&HttpServlet::service) /*operation*/) {}
void destroy(decltype(&HttpServlet::destroy) /*operation*/) {}
} // namespace servlet

namespace listener {
void init(decltype(&HttpListener::init) /*operation*/) {}
void onRequest(decltype(&HttpListener::onRequest) /*operation*/) {}
} // namespace listener
