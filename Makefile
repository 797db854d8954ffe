# The front door: one command per task. The builds themselves are CMake presets.

# What `make snapshot` asks of varnelctl, on the sample host unless --host names another.
VARNELCTL_ARGUMENTS ?= snapshot --app sql --disk TSL0001 TSL0002 TSL0003
# Installs missing packages; SETUP=: skips that.
SETUP ?= tools/setup.sh
# For `make fuzz`: how long each target runs, and which alone (all of them when empty).
SECONDS ?= 60
FUZZER ?=
# For `make bench`: the sizes to measure, ascending (100 to 10,000 when empty).
SIZES ?=
# For `make fleet`: how many hosts are simulated.
HOSTS ?= 100

sources = $(shell git ls-files --cached --others --exclude-standard -- '*.cpp' '*.h')
configure = cmake --log-level=WARNING --preset

.DEFAULT_GOAL := help
.PHONY: help snapshot fleet test test-thorough coverage docs package bench bench-budget bench-steps bench-instructions fuzz format tidy clean setup

help: ## this list
	@sed -n 's/^\([a-z-]*\):.*## \(.*\)/\1\t\2/p' $(firstword $(MAKEFILE_LIST)) | expand -t 22

snapshot: setup ## build varnelctl and take a snapshot on the simulated sample host
	@$(configure) native
	@cmake --build --preset native --target varnelctl
	build/native/bin/varnelctl $(VARNELCTL_ARGUMENTS)

fleet: setup ## take the sets of a hundred simulated hosts with Ansible, some of them broken, and make the page of them
	@$(SETUP) fleet
	@$(configure) native
	@cmake --build --preset native --target varnelctl
	@deploy/ansible/demo/make_fleet.py build/fleet --varnelctl $(CURDIR)/build/native/bin/varnelctl --hosts $(HOSTS)
	@cd build/fleet && ansible-playbook --inventory inventory.yml --forks 20 tessel.varnel.protect \
		|| { [ $$? -eq 2 ] && echo "Four of the hosts are broken on purpose."; }
	@echo "The inventory: build/fleet/inventory.yml. The record and the page: build/fleet/runs."

test: setup ## build and run every test, natively with sanitizers and under Wine
	-@$(SETUP) browser docs package fleet
	@tools/run-tests.sh

test-thorough: setup ## the same with every sweep made whole under sanitizers and Wine, on more random hosts
	-@$(SETUP) browser docs package fleet
	@tools/run-tests.sh --thorough

coverage: setup ## run the native tests and list the lines of the library that none of them reaches
	@$(SETUP) coverage
	@tools/coverage.sh

docs: setup ## the reference of the library's headers, build/native/docs/html; no warning passes
	@$(SETUP) docs
	@$(configure) native
	@cmake --build --preset native --target docs

package: setup ## build every package of this version for Windows and Debian, build/package/*
	@$(SETUP) package
	@tools/package.sh

bench: build-benchmarks ## what whole requests cost and ask beside a bare requestor: tables, JSON and plot in build/bench
	@tools/measure-cost.sh build/native/bin/bench build/bench $(SIZES)
	@build/native/bin/bench/platform_calls

bench-budget: build-benchmarks ## fail when a request needs more instructions than bench/budget.txt allows
	@tools/check-budget.sh build/native

bench-steps: build-benchmarks ## time the single steps of a request
	@set -e; for program in $$(cat build/native/benchmarks.txt); do $$program; done

bench-instructions: build-benchmarks ## count the instructions of each step under valgrind
	@tools/count-instructions.sh $$(cat build/native/benchmarks.txt)

.PHONY: build-benchmarks
build-benchmarks: setup
	@$(SETUP) instructions
	@$(configure) native
	@cmake --build --preset native --target benchmarks

fuzz: setup ## fuzz every target in turn: make fuzz SECONDS=600, FUZZER=host_file for one alone
	@$(SETUP) fuzz
	@$(configure) fuzz
	@cmake --build --preset fuzz --target $(if $(FUZZER),$(FUZZER)_fuzzer,fuzzers)
	@fuzz/run.sh $(SECONDS) $(FUZZER)

format: ## format every source file in place
	@$(SETUP) format
	@clang-format -i $(sources)

tidy: setup ## check every unit with clang-tidy; units without findings are left out until they change
	@$(SETUP) format
	@$(configure) tidy
	@cmake --build build/tidy --target simulator/generated/sample_host.inc $(foreach part,run.css run.js fleet.css fleet.js,varnelctl/generated/$(part).inc)
	@tools/tidy.py build/tidy

clean: ## remove everything that was built
	rm -rf build

setup: ## install what is missing (Debian 12)
	@$(SETUP)
