#include "mime/mail_date.h"
