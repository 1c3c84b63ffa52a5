# make run: the demonstration station.  make test: the test suite.  Both do all set-up themselves.
#
# PYTHON chooses the interpreter; the default is Debian's, because only that has wxPython.  Another one gets a virtual
# environment of its own and takes wxPython from where pip is told to look (PIP_FIND_LINKS).  WINDOWS=no is for an
# interpreter without any wxPython: `make test` then runs what opens no window.

SHELL := bash
.SHELLFLAGS := -eu -o pipefail -c
.DELETE_ON_ERROR:
MAKEFLAGS += --no-builtin-rules --no-print-directory

PYTHON := /usr/bin/python3
DEBIAN_PYTHON := $(filter /usr/bin/python3,$(PYTHON))
WINDOWS := yes
WINDOWLESS := $(filter no,$(WINDOWS))
VENV := $(if $(DEBIAN_PYTHON),.venv,.venv-$(patsubst python%,%,$(notdir $(PYTHON))))$(if $(WINDOWLESS),-windowless)
BIN := $(VENV)/bin
STAMPS := $(VENV)/stamps
PIP := $(BIN)/pip --quiet --disable-pip-version-check --no-input
WHEEL_PYTHONS := python3.11 python3.12 python3.13 python3.14
PYTEST_ARGS :=
BENCH_ARGS :=

MODULE_SOURCES := CMakeLists.txt pyproject.toml $(shell find ats -name '*.[ch]pp' -o -name '*.pyi' -o -name 'py.typed')
COMPANION_SOURCES := companions/pyproject.toml companions/setup.py $(shell find companions -name '*.po')
RESULTS_SOURCES := results/pyproject.toml results/setup.py $(shell find results -name '*.po')
CPP := $(filter %.cpp %.hpp,$(MODULE_SOURCES))

.PHONY: run test bench sanitize wheels lint setup system clean

run: setup
	@tools/run-station $(BIN)/python

test: setup $(STAMPS)/test
	@$(if $(WINDOWLESS),PYTHONPATH=tests,tools/virtual-display) $(BIN)/python -m pytest \
	    $(if $(WINDOWLESS),-p windowless) $(PYTEST_ARGS)

bench: setup
	@tools/virtual-display $(BIN)/python bench/run.py $(BENCH_ARGS)

# The module again, with checks of memory and undefined behaviour, and the suite on it.
SANITIZERS := -fsanitize=address,undefined -fno-omit-frame-pointer -fno-sanitize-recover=undefined
sanitize: setup $(STAMPS)/test
	@$(PIP) install --no-build-isolation --no-deps --upgrade --target build/sanitize \
	    --config-settings build-dir=build/sanitize-objects --config-settings cmake.build-type=RelWithDebInfo \
	    --config-settings "cmake.define.CMAKE_CXX_FLAGS=$(SANITIZERS)" .
	@preload="$$(g++ -print-file-name=libasan.so) $$(g++ -print-file-name=libstdc++.so)"; \
	tools/virtual-display env ASAN_OPTIONS=detect_leaks=0 LD_PRELOAD="$$preload" PYTHONPATH=build/sanitize \
	    $(BIN)/python -m pytest --capture=sys $(PYTEST_ARGS)

# Source distributions, and from these the wheels of the Python distributions and one of the module for each interpreter at
# hand; auditwheel gives it the tag of the oldest C library that it runs with.
DIST := build/wheels
wheels: setup $(STAMPS)/wheels
	@rm -rf $(DIST) build/wheel-env
	@$(BIN)/python -m build --quiet --no-isolation --sdist --outdir $(DIST) .
	@flock build/companions.lock $(BIN)/python -m build --quiet --no-isolation --outdir $(DIST) companions
	@flock build/results.lock $(BIN)/python -m build --quiet --no-isolation --outdir $(DIST) results
	@for name in $(WHEEL_PYTHONS); do \
	    python=$$(tools/find-python $$name) || { echo "no wheel for $$name"; continue; }; \
	    echo "building the wheel for $$name"; \
	    "$$python" -m venv build/wheel-env/$$name; \
	    PIP_CONSTRAINT=$(CURDIR)/requirements/build.txt build/wheel-env/$$name/bin/pip --quiet wheel --no-deps \
	        --wheel-dir $(DIST)/plain $(DIST)/qon_ats-[0-9]*.tar.gz; \
	done
	@PATH="$(CURDIR)/$(BIN):$$PATH" $(BIN)/auditwheel --verbose repair --strip --wheel-dir $(DIST) $(DIST)/plain/*.whl \
	    >$(DIST)/auditwheel.log 2>&1 || { tail -n 5 $(DIST)/auditwheel.log; exit 1; }
	@rm -rf $(DIST)/plain $(DIST)/auditwheel.log
	@ls $(DIST)

# The companions, the demonstration and a new station, each as a program of its own.
COMPANIONS := $(patsubst companions/src/%/__init__.py,%,$(wildcard companions/src/*/__init__.py))
MYPY = $(CURDIR)/$(BIN)/mypy --config-file $(CURDIR)/pyproject.toml
lint: setup $(STAMPS)/test
	$(BIN)/ruff check .
	cd companions/src && $(MYPY) $(addprefix -p ,$(COMPANIONS))
	cd results/src && $(MYPY) -p qon_results
	cd demo && $(MYPY) *.py scripts/*.py bench_sim
	rm -rf build/example && $(BIN)/python -m qon_station new build/example >/dev/null
	cd build/example && $(MYPY) *.py scripts/*.py tests/*.py
	$(BIN)/clang-format --dry-run --Werror $(CPP)

setup: $(STAMPS)/module $(STAMPS)/companions $(STAMPS)/results

# Asked for each time: it answers at once when nothing is missing, and a package may have been removed.
system:
	@tools/system-packages station $(if $(DEBIAN_PYTHON)$(WINDOWLESS),,wheel)

$(VENV)/pyvenv.cfg: | system
	@echo "making $(VENV)"; \
	python=$$(tools/find-python $(PYTHON)); \
	"$$python" -m venv $(if $(DEBIAN_PYTHON),--system-site-packages) $(VENV)

$(STAMPS)/packages: requirements/build.txt requirements/run.txt $(VENV)/pyvenv.cfg | system
	@echo "installing Python packages into $(VENV)"
	@$(PIP) install -r requirements/build.txt -r requirements/run.txt
	@$(if $(DEBIAN_PYTHON)$(WINDOWLESS),,$(PIP) install --only-binary wxPython -r requirements/wxpython.txt)
	@$(if $(WINDOWLESS),,$(BIN)/python -c 'import wx')
	@mkdir -p $(STAMPS) && touch $@

$(STAMPS)/test: requirements/test.txt requirements/fleet.txt $(STAMPS)/packages
	@$(PIP) install -r requirements/test.txt -r requirements/fleet.txt
	@touch $@

$(STAMPS)/wheels: requirements/wheels.txt $(STAMPS)/packages
	@$(PIP) install -r requirements/wheels.txt
	@touch $@

# The build directory stays (pyproject.toml names it), so only what changed is compiled.
$(STAMPS)/module: $(MODULE_SOURCES) $(STAMPS)/packages
	@echo "building qon_ats for $(VENV)"
	@$(PIP) install --no-build-isolation --no-deps --config-settings cmake.define.QON_WARNINGS_AS_ERRORS=ON .
	@touch $@

# One environment at a time: the catalogues are compiled beside their sources.
$(STAMPS)/companions: $(COMPANION_SOURCES) $(STAMPS)/packages
	@mkdir -p build && flock build/companions.lock $(PIP) install --no-build-isolation --no-deps --editable companions
	@touch $@

$(STAMPS)/results: $(RESULTS_SOURCES) requirements/results.txt $(STAMPS)/packages
	@echo "installing qon_results into $(VENV)"
	@$(PIP) install -r requirements/results.txt
	@mkdir -p build && flock build/results.lock $(PIP) install --no-build-isolation --no-deps --editable results
	@touch $@

clean:
	rm -rf build .venv .venv-* companions/build companions/src/*.egg-info results/build results/src/*.egg-info
