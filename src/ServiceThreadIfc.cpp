#include "ServiceThreadIfc.h"

ServiceThreadIfc::~ServiceThreadIfc() = default;
