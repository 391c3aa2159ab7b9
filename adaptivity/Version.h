#pragma once
// The version of the slabadapt module.
namespace slabadapt {
const char* Version();
}
