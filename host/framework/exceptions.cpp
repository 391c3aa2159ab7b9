#include "host/framework/exceptions.h"

void AfxThrowInvalidArgException() {
    throw CInvalidArgException();
}
