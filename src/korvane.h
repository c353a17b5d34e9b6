// The whole public interface of the component library.
#pragma once

#include "facade/basic_interface.h"
#include "facade/web_interface.h"
#include "frame/boss_object.h"
#include "frame/database.h"
#include "frame/error_numbers.h"
