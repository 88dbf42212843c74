// The diagnostics gateways the tests call directly.
#pragma once

struct ndArray;

void coxsresbif(int, ndArray**, int, const ndArray**);
void coxmresbif(int, ndArray**, int, const ndArray**);
namespace rkeutils {
void fwhtbif(int, ndArray**, int, const ndArray**);
}
