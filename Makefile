# The two commands of the README, and the builds they are made of.
#   make demo   set up, build the library, run the demo program and the
#               deployment daemon and client end to end on 127.0.0.1
#   make test   set up, build and test natively, fuzz briefly, test under wine64,
#               and build the i686 DLL
# Further: make asan | tsan | fuzz | bench | install-check

CMAKE ?= cmake
CTEST ?= ctest

# Seconds per fuzz target: short in the test run, longer for make fuzz.
FUZZ_TEST_SECONDS ?= 20
FUZZ_SECONDS ?= 120

.PHONY: setup demo test native-test fuzz-build fuzz-test mingw64-test mingw32-build asan tsan fuzz bench install-check clean

setup:
	@./scripts/setup.sh

demo: setup
	$(CMAKE) --preset default -DBUILD_TESTING=OFF -DVQ_GLOB_EXAMPLES=ON -B build/demo >/dev/null
	$(CMAKE) --build build/demo -j2 --target vq_demo vqglob
	./build/demo/bin/vq_demo build/demo
	@echo; echo "--- the vqglob tool ---"
	./build/demo/bin/vqglob crc README.md
	./build/demo/bin/vqglob match "*.cfg" demo.cfg
	./build/demo/bin/vqglob conf set build/demo/demo.cfg Replication Retries 9
	./build/demo/bin/vqglob conf get build/demo/demo.cfg Replication Retries
	./build/demo/bin/vqglob errors -facility=cnf
	@echo; echo "--- the product: a deployment daemon and its client over TLS ---"
	./scripts/demo.sh build/demo

test: setup native-test fuzz-test mingw64-test mingw32-build

native-test:
	$(CMAKE) --preset default
	$(CMAKE) --build --preset default
	$(CTEST) --preset default
	./scripts/check_exports.sh build/default/lib/libvq_glob.so
	./scripts/install_check.sh build/default

# Every fuzz target over a scratch copy of its corpus; a finding fails the run.
fuzz-test: fuzz-build
	./scripts/fuzz_run.sh build/fuzz $(FUZZ_TEST_SECONDS)

mingw64-test:
	$(CMAKE) --preset mingw64
	$(CMAKE) --build --preset mingw64
	./scripts/wine_prefix.sh
	# A Wine process that wedges at start-up is retried rather than failing the run.
	$(CTEST) --preset mingw64 --repeat after-timeout:3
	./scripts/check_exports.sh build/mingw64/bin/vq_glob.dll
	# Deployments across platforms: the Linux vqglob to the Windows daemon
	# under wine64, and the Windows client to the Linux daemon.
	$(CMAKE) --preset default >/dev/null
	$(CMAKE) --build --preset default --target vqglob
	./scripts/wine_interop.sh build/default build/mingw64

mingw32-build:
	$(CMAKE) --preset mingw32
	$(CMAKE) --build --preset mingw32
	./scripts/check_exports.sh build/mingw32/bin/vq_glob.dll

asan: setup
	$(CMAKE) --preset asan
	$(CMAKE) --build --preset asan
	$(CTEST) --preset asan

tsan: setup
	$(CMAKE) --preset tsan
	$(CMAKE) --build --preset tsan
	$(CTEST) --preset tsan

fuzz-build:
	$(CMAKE) --preset fuzz
	$(CMAKE) --build --preset fuzz

# A longer run that adds the inputs reaching new code to fuzz/corpus/<target>.
fuzz: setup fuzz-build
	./scripts/fuzz_run.sh build/fuzz $(FUZZ_SECONDS) --merge

bench: setup
	$(CMAKE) --preset default
	$(CMAKE) --build --preset default
	for b in build/default/bin/*_bench; do $$b --benchmark_min_time=0.2; done

install-check: setup
	./scripts/install_check.sh

clean:
	rm -rf build
