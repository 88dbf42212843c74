// The matching-pursuit gateways, for the tests that call them directly.
#pragma once

struct ndArray;
void ompBatchImpl(int, ndArray**, int, const ndArray**);
void ompCholImpl(int, ndArray**, int, const ndArray**);
