#include "support/fixtures.h"
