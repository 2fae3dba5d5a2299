#include "framework/Service.h"

void Service::run() {}

MirelThreadPriority Service::getThreadPriorityForPlatform() { return ePriorityNormal; }
