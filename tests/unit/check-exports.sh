#!/bin/sh
# The shared library exports its classes and nothing else, and needs no provider of the framework.
set -eu
library=$1

strange=$(nm -D -C --defined-only "$library" | cut -d' ' -f3- | sed 's/@.*//' |
    grep -vE '^(non-virtual thunk to |vtable for |typeinfo for |typeinfo name for )?(ServiceExecutor|ServiceThreadPool|ServiceThread_MT|ServiceThread_ST|ServiceThreadIfc|ServiceThreadPoolIfc|ServiceExecCallbackIfc)(::.*)?$' |
    grep -v '^MIREL_1' || true)
missing=""
for symbol in 'ServiceExecutor::ServiceExecutor' 'ServiceThreadPool::ServiceThreadPool' \
    'ServiceThread_MT::ServiceThread_MT' 'ServiceThread_ST::ServiceThread_ST' \
    'typeinfo for ServiceExecutor' 'typeinfo for ServiceThreadPoolIfc' \
    'typeinfo for ServiceExecCallbackIfc' 'vtable for ServiceThreadPool'; do
    nm -D -C --defined-only "$library" | grep -qF "$symbol" || missing="$missing $symbol;"
done
needs=$(nm -D -C --undefined-only "$library" | grep 'mirel::' || true)
needs="$needs$(objdump -p "$library" | grep 'NEEDED.*Mirel' || true)"

[ -z "$strange" ] || { echo "exported without need:"; echo "$strange"; }
[ -z "$missing" ] || echo "not exported:$missing"
[ -z "$needs" ] || { echo "needs a provider of the framework:"; echo "$needs"; }
objdump -p "$library" | grep -q 'SONAME *libMirelServiceExecution.so.[0-9]' || { echo "no SONAME"; exit 1; }
[ -z "$strange$missing$needs" ]
