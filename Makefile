# Each command sets up and builds what it needs, for each CPython it finds of 3.12 and 3.13.

bin = .venv/cp313/bin
on_path = PYTHONPATH="$(CURDIR)/build/cp313/package:$(CURDIR)"
MAKEFLAGS += --no-print-directory
cpp_files = git ls-files -z --cached --others --exclude-standard '*.cpp' '*.hpp'

help:  ## list the commands
	@sed -n 's/^\([a-z-]*\):.*## /  make \1\t/p' $(MAKEFILE_LIST) | expand -t 22

demo:  ## walk through the module's work against a local service
	tools/build
	@$(on_path) $(bin)/python demo/walk.py

test:  ## run the tests
	tools/test

sanitize:  ## run the tests under AddressSanitizer, UndefinedBehaviorSanitizer and LeakSanitizer
	tools/test sanitize

stress:  ## let memory run out, look for leaks, use many interpreters and hostile input (long)
	tools/build
	tools/build sanitize
	tools/each tools/stress

bench:  ## compare the speed with plain Python
	tools/build
	$(on_path) $(bin)/python benchmarks/benchmark.py

format:  ## format all sources
	tools/setup
	$(cpp_files) | xargs -0 $(bin)/clang-format -i
	$(bin)/ruff check --fix --exit-zero
	$(bin)/ruff format

format-check:  ## fail if a source is not formatted
	tools/setup
	$(cpp_files) | xargs -0 $(bin)/clang-format --dry-run --Werror
	$(bin)/ruff check
	$(bin)/ruff format --check

lint:  ## run clang-tidy
	tools/build
	$(bin)/run-clang-tidy.py -quiet -p build/cp313 -clang-tidy-binary $(bin)/clang-tidy

package:  ## build sdist and wheels of the last commit twice and check them
	tools/setup
	@tools/each sh -c '"$$1/bin/python" tools/check_package.py' check

windows:  ## cross-build for 64-bit Windows and check the file
	tools/windows_cross

reference:  ## write docs/reference.md from the type stub and the docstrings
	tools/build
	$(on_path) $(bin)/python tools/make_reference.py

clean:  ## remove everything that was set up and built
	rm -rf build .venv dist

.PHONY: help demo test sanitize stress bench format format-check lint package windows reference clean
