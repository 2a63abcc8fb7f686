# Sourced by the build scripts: compile through ccache when it is installed (the bootstrap
# installs it), so a second build of the same sources, in this checkout or a fresh clone of it,
# takes minutes less. Paths are taken relative to the checkout, so clones in other folders
# share the cache.
if command -v ccache >/dev/null; then
    export CMAKE_C_COMPILER_LAUNCHER=ccache CMAKE_CXX_COMPILER_LAUNCHER=ccache
    export CCACHE_BASEDIR="$PWD" CCACHE_NOHASHDIR=true
fi
