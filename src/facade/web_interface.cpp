#include "facade/web_interface.h"
