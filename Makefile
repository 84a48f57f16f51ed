# Build and install the lavrel extension with PGXS.
#   make && make install          build and install into the system PostgreSQL 15
#   test/run.sh                   run every test suite against a throwaway cluster

MODULE_big = lavrel
EXTENSION  = lavrel
DATA       = sql/lavrel--1.1.sql sql/lavrel--1.0--1.1.sql

SRCS = src/host/guard.cpp \
       src/host/copy.cpp \
       src/host/star_columns.cpp \
       src/host/ident.cpp \
       src/host/host.cpp \
       src/label_record.cpp \
       src/parse_ident.cpp \
       src/lavrel_base.cpp \
       src/policy_misc.cpp \
       src/policy_syscat.cpp \
       src/protected_tables.cpp \
       src/policy_label.cpp \
       src/policy_cmds.cpp \
       src/policy_user.cpp \
       src/policy_refusal.cpp \
       src/policy_session.cpp \
       src/rewritemac.cpp \
       src/policy_utility_stmt_hooking.cpp \
       src/lavrel.cpp
OBJS = $(SRCS:.cpp=.o)

# `make installcheck` runs the suites against the server named by PGHOST,
# PGPORT and PGUSER; lavrel must be preloaded there and the test module
# (test/modules/lavrel_test) installed.  test/run.sh does all of that.
REGRESS = $(shell sed -n 's/^test: //p' test/schedule)
REGRESS_OPTS = --inputdir=test --outputdir=test/results/installcheck
ISOLATION = $(shell sed -n 's/^test: //p' test/isolation/schedule 2>/dev/null)
ISOLATION_OPTS = --inputdir=test/isolation --outputdir=test/results/installcheck-isolation

PG_CONFIG ?= /usr/lib/postgresql/15/bin/pg_config
PG_CPPFLAGS = -I$(CURDIR)/src
PG_CXXFLAGS = -std=c++17 -fno-exceptions -fno-rtti -Wall -Wno-register -Wno-missing-field-initializers

# Debian's server is built with LLVM JIT; we ship no bitcode.
override with_llvm = no

PGXS := $(shell $(PG_CONFIG) --pgxs)
include $(PGXS)

$(OBJS): src/lavrel.h src/lavrel_testing.h src/host/host.h src/host/pg.h
