#pragma once

// The fixed message of a table code, or null for a code the table does not hold. Exact match on
// all 64 bits.
const char *errorMessageFor(unsigned long code);
