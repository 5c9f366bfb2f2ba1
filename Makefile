# The front of the house. Each of these also installs what it lacks on a Debian machine.
#   make demo    the main job: processes of both word sizes record real events into one log, others read them back; some crash
#   make check   builds and tests everything
#   make build   both ABIs: build/i386/libplovsp1.so, build/x86_64/libplovsp1.so
#   make bench   every hot path beside its floor
#   make fuzz    the fuzz targets, FUZZ_SECONDS (default 60) each
FUZZ_SECONDS ?= 60
export CCACHE_BASEDIR := $(CURDIR)
export CCACHE_NOHASHDIR := 1

.PHONY: demo check build bench fuzz format clean

demo: build
	demo/run

check:
	scripts/prepare check
	scripts/check

build:
	scripts/prepare build
	scripts/build i386 x86_64

bench:
	scripts/prepare bench
	scripts/build i386-bench x86_64-bench
	bench/run

fuzz:
	scripts/prepare fuzz
	scripts/build i386-fuzz x86_64-fuzz
	fuzz/run $(FUZZ_SECONDS)

format:
	scripts/format --fix

clean:
	rm -rf build
