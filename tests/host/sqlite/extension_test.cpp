#include "tests/host/sqlite/database.h"
