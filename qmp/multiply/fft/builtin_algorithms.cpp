// Fills the registry with every built-in algorithm: "BKT" from the multiplication layer and
// the transforms of this layer as they are added.
#include "qmp/multiply/builtin_algorithms.h"

#include "qmp/multiply/algorithm_registry.h"
#include "qmp/multiply/bkt_algorithm.h"
#include "qmp/multiply/fft/fftv4.h"
#include "qmp/multiply/fft/karatsuba_transforms.h"
#include "qmp/multiply/fft/split_modulus_fft.h"

namespace qmp {

void register_builtin_algorithms(AlgorithmRegistry& registry) {
    register_bkt(registry);
    register_fftv4(registry);
    register_split_modulus_fft(registry);
    register_karatsuba_transforms(registry);
}

}  // namespace qmp
