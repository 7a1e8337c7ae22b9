#pragma once

#include "log/Logger.h"
