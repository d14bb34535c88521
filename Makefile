# Each command sets up what it needs; run `make` for the list.

help:  ## list the commands
	@sed -n 's/^\([a-z-]*\):.*## /  make \1\t/p' $(MAKEFILE_LIST) | expand -t 20

clean:  ## remove everything that was set up and built
	rm -rf build .venv dist

.PHONY: help clean
