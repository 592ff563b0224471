#!/bin/sh
# Runs a command with address-space layout randomisation off, when the system allows that.
#
# ThreadSanitizer as shipped with GCC 12 keeps its shadow memory at fixed addresses and aborts
# with "FATAL: ThreadSanitizer: unexpected memory mapping" when the kernel places mmap regions
# with more random bits than it expects (vm.mmap_rnd_bits above 28, as some newer kernels set
# it). With randomisation off every mapping lands where it expects. The setting is inherited
# across exec, so programs the tests start (zefo-monitor) get it too. Where changing the
# personality is forbidden (some container seccomp profiles) the command runs as it is.
arch=$(uname -m)
if setarch "$arch" -R true 2>/dev/null; then
  exec setarch "$arch" -R "$@"
fi
exec "$@"
