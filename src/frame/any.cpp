#include "frame/any.h"
