#pragma once
// What front ends and the host may call in the module's shared library. The
// library's export list keeps everything else, OpenVDB's templates included,
// inside it.
#define ZELMAR_API __attribute__((visibility("default")))
