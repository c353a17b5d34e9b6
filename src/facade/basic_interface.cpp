#include "facade/basic_interface.h"
