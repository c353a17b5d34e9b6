#include "engine/mail_engine.h"
