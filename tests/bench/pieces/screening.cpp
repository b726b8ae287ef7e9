// The screening of every request.
#include "pieces.h"

#include "servlet_controller.h"

#include <memory>

void pieces::addScreening() {
    // Screening needs no plug-ins, so the configuration is empty.
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
