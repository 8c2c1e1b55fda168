// Runs the target on every input of corpus files, or on single files, without a fuzzer.
//
//   replay_source CORPUS...
//   replay_source --input FILE...
#include <cstdio>
#include <iterator>
#include <string_view>

#include "corpus.h"
#include "forked.h"
#include "target.h"

int main(int argc, char **argv)
{
    const bool single = argc > 1 && std::string_view(argv[1]) == "--input";
    unsigned inputs = 0, faults = 0;
    setvbuf(stdout, nullptr, _IOLBF, 0);   // children inherit nothing
    target_prepare();
    for (int i = single ? 2 : 1; i < argc; i++) {
        std::vector<std::string> all;
        if (single) {
            std::ifstream in(argv[i], std::ios::binary);
            all.emplace_back(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
        } else {
            all = corpus_read(argv[i]);
        }
        for (size_t n = 0; n < all.size(); n++, inputs++)
            if (!run_forked(all[n], nullptr)) {
                printf("%s, input %zu of %zu: a fault, see above\n", argv[i], n, all.size());
                faults++;
            }
    }
    printf("%u inputs, %u faults\n", inputs, faults);
    target_clean();
    return inputs > 0 && faults == 0 ? 0 : 1;
}
