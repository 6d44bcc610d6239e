#pragma once

#include <gtest/gtest.h>

#include "client/Failure.h"

/// Expects `statement` to throw a Failure with `exitStatus` and `text`.
#define EXPECT_FAILURE(statement, exitStatus, text)                      \
    do {                                                                 \
        try {                                                            \
            static_cast<void>(statement);                                \
            ADD_FAILURE() << "nothing was thrown";                       \
        } catch (const tavrik::Failure& failure) {                       \
            EXPECT_EQ(failure.Status(), tavrik::ExitStatus::exitStatus); \
            EXPECT_STREQ(failure.what(), text);                          \
        }                                                                \
    } while (false)
