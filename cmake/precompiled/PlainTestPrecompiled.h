#pragma once

#include "PlainPrecompiled.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
