// The test kit's recorded log, by the name that the tests of the phone's pages know.
#ifndef RECORDED_LOG_H
#define RECORDED_LOG_H

#include <kit/testing/recorded_log.h>

namespace recorded_log = kit::testing::recorded_log;

#endif
