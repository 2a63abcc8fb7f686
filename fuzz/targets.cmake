# brimvale_add_fuzzer(<name> <source>) lines, one per decoder.
