#include "Tarsel_MailConversions.h"
