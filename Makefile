# Each command sets up and builds what it needs, with each CPython of PYTHONS: the first has to be there, the others are
# used where they are found.

export PYTHONS ?= 3.13 3.12
# Temporary files of whatever runs here stay inside the checkout.
export TMPDIR := $(CURDIR)/build/tmp
MAKEFLAGS += --no-print-directory
export ZIG_GLOBAL_CACHE_DIR ?= $(CURDIR)/build/zig
$(shell mkdir -p build/tmp)

empty =
first = cp$(subst .,$(empty),$(firstword $(PYTHONS)))
bin = .venv/$(first)/bin
on_path = PYTHONPATH="$(CURDIR)/build/$(first)/package:$(CURDIR)"
set_up_benchmarks = $(bin)/python -m pip install -qq --disable-pip-version-check -r requirements/benchmarks.txt
# Also where a limit was missed, which is the command's status then.
draw = status=$$?; $(bin)/python benchmarks/chart.py benchmarks/results/*.json benchmarks/speed.svg; exit $$status
cpp_files = git ls-files -z --cached --others --exclude-standard '*.cpp' '*.hpp'

help:  ## list the commands
	@sed -n 's/^\([a-z-]*\):.*## /  make \1\t/p' $(MAKEFILE_LIST) | expand -t 22

demo:  ## walk through the module's work against a local service
	@tools/build
	@$(on_path) $(bin)/python demo/walk.py

test:  ## run the tests, with PRESET=clang on a build by clang
	@tools/test $(PRESET)

plain:  ## run the tests on the plain-Python rendering
	@tools/build
	$(on_path) $(bin)/python -m pytest --plain --numprocesses=auto

sanitize:  ## run the tests under AddressSanitizer, UndefinedBehaviorSanitizer and LeakSanitizer
	@tools/test sanitize

stress:  ## let memory run out, look for leaks, use many interpreters and hostile input (long)
	@tools/stress

bench:  ## compare the speed with plain Python and Cython, and draw it
	@tools/build
	$(set_up_benchmarks)
	export PATH="$(CURDIR)/$(bin):$$PATH" && \
	    cmake -S benchmarks -B build/cython -DPython_EXECUTABLE="$(CURDIR)/$(bin)/python" --log-level=NOTICE && \
	    cmake --build build/cython
	$(on_path) $(bin)/python benchmarks/benchmark.py --cython build/cython/agent_onboarding.so \
	    --save benchmarks/results/linux.json; $(draw)

format:  ## format all sources
	@tools/setup
	$(cpp_files) | xargs -0 $(bin)/clang-format -i
	$(bin)/ruff check --fix --exit-zero
	$(bin)/ruff format

format-check:  ## fail if a source is not formatted
	@tools/setup
	$(cpp_files) | xargs -0 $(bin)/clang-format --dry-run --Werror
	$(bin)/ruff check
	$(bin)/ruff format --check

lint:  ## run clang-tidy
	@tools/build
	$(bin)/run-clang-tidy.py -quiet -p build/$(first) -clang-tidy-binary $(bin)/clang-tidy

package:  ## build sdist and wheels of the last commit in dist/, twice, and check them
	@tools/build
	$(bin)/python tools/check_package.py $$(tools/setup)

windows:  ## build for 64-bit Windows and check the file
	@tools/setup
	@$(bin)/python tools/windows.py build

windows-test:  ## run the demonstration and the tests in CPython for Windows, under Wine
	@tools/setup
	@$(bin)/python tools/windows.py test

windows-bench:  ## compare the speed with plain Python there
	@tools/setup
	$(set_up_benchmarks)
	@$(bin)/python tools/windows.py bench; $(draw)

reference:  ## write docs/reference.md from the type stub
	@tools/build
	$(on_path) $(bin)/python tools/make_reference.py

requirements:  ## pin the newest versions of the requirements, with their hashes
	@tools/setup
	@for file in requirements/*.in examples/*.in; do \
	    $(bin)/uv pip compile --upgrade --universal --python-version 3.12 --generate-hashes --no-header --quiet \
	        "$$file" --output-file "$${file%.in}.txt"; \
	done

clean:  ## remove everything that was set up and built
	rm -rf build .venv dist .hypothesis .*_cache
	find . -name __pycache__ -prune -exec rm -rf {} +

.PHONY: help demo test plain sanitize stress bench format format-check lint package windows windows-test windows-bench \
    reference requirements clean
