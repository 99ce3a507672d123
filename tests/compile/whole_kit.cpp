#include "sqldb/kit/kit.h"
