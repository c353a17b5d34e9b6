#include "facade/mail_user.h"
