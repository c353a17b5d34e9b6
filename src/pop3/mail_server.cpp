#include "pop3/mail_server.h"
