# Shortcuts for the two things that one wants first. Everything else is CMake: see the presets.
JOBS ?= 2
RELEASE = build/release/bin

.PHONY: demo run-example check build profiled deps install uninstall package check-package bench fuzz coverage clean

demo: build
	@sh scripts/demo.sh $(RELEASE)

# Assembles, links and runs examples/blink.as, or another one: make run-example EXAMPLE=table.as
EXAMPLE ?= blink.as
run-example: build
	@$(RELEASE)/zelrun examples/$(EXAMPLE)

check: demo
	sh scripts/check-style.sh
	cmake --preset dev
	cmake --build --preset dev -j $(JOBS)
	sh scripts/check-tidy.sh
	cmake --preset clang
	cmake --build --preset clang -j $(JOBS)
	sh scripts/check-install.sh build/release
	ctest --preset dev -j $(JOBS)
	ctest --preset clang -j $(JOBS)
	$(RELEASE)/exec_compare --count 400
	$(RELEASE)/exec_compare --kind=hand --count 400
	$(RELEASE)/bench_run --gate bench/figures.txt

build: deps
	cmake --preset release
	cmake --build --preset release -j $(JOBS)

# As release, but compiled by a profile of what the programs of the measurement need. A sixth fewer instructions.
profiled: deps
	sh scripts/profile.sh $(JOBS)

deps:
	@sh scripts/install-deps.sh

PREFIX ?= /usr/local
install: build
	cmake --install build/release --prefix $(PREFIX)

# What the last `make install` put there. DESTDIR counts for both.
uninstall:
	cmake --build --preset release --target uninstall

# A tarball and a Debian package, in build/profiled.
package: profiled
	cd build/profiled && cpack

# What lintian and a fresh system say of it. As root, with debootstrap.
check-package: package
	sh scripts/check-package.sh build/profiled/zel8_*.deb

bench: build
	cmake --build --preset release --target bench

SECONDS ?= 60
fuzz:
	for target in source chip cfgdata zelobj zellink zelsim; do sh scripts/fuzz.sh $$target $(SECONDS) || exit 1; done

# Which lines the tests reach: a table, and pages in build/coverage/html.
coverage: deps
	sh scripts/coverage.sh $(JOBS)

clean:
	rm -rf build
