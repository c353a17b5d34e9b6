#include "maintenance/cleaner.h"
