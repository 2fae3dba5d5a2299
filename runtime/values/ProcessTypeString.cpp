#include "framework/ProcessTypeString.h"

const std::string ProcessTypeString::SERVICE_EXEC_THREAD = "mirel-executor";
const std::string ProcessTypeString::SERVICE_MT_THREAD = "mirel-worker";
const std::string ProcessTypeString::SERVICE_ST_THREAD = "mirel-inline";
