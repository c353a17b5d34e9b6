#include "message/address_fields.h"
