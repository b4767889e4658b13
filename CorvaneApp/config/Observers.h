#pragma once
// Moved to the platform library, where every subsystem can share it.
#include "CorvaneApp/platform/Observers.h"
