#pragma once

#include "finding/finding.h"
