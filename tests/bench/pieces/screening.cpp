// What every request is looked through for.
#include "pieces.h"

#include "servlet_controller.h"

#include <memory>

void pieces::addScreening() {
    // Without a configuration there are no plug-ins, and none are asked.
    const auto controller = std::make_shared<ServletController>("");
    const std::string url = "/servlet?p=settings-datetime&q=load&acc=0&jumpto=status";
    const std::string value = "settings-datetime";
    add("screening/url", static_cast<long>(url.size()), "ours", [controller, url] {
        benchmark::DoNotOptimize(controller->CheckUrlIllegalChar(url.c_str()));
    });
    add("screening/parameter", static_cast<long>(value.size()), "ours", [controller, value] {
        benchmark::DoNotOptimize(controller->CheckParaIllegalChar(value.c_str(), false));
    });
}
