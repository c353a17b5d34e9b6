#include "message/mail_messages.h"
