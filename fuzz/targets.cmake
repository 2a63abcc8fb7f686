# brimvale_add_fuzzer(<name> <source>) lines, one per decoder.
brimvale_add_fuzzer(lzfse_decompress_fuzzer LzfseDecompressFuzzer.cpp)
brimvale_add_fuzzer(bplist_read_fuzzer BinaryPlistFuzzer.cpp)
brimvale_add_fuzzer(lsjson_fuzzer LsjsonFuzzer.cpp)
brimvale_add_fuzzer(cache_record_fuzzer CacheRecordFuzzer.cpp)
brimvale_add_fuzzer(guided_config_fuzzer GuidedConfigFuzzer.cpp)
brimvale_add_fuzzer(lsjson_stream_fuzzer LsjsonStreamFuzzer.cpp)
brimvale_add_fuzzer(ncdu_export_fuzzer NcduExportFuzzer.cpp)
