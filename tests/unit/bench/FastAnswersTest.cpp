#include "bench/FastAnswers.h"

#include <gtest/gtest.h>

namespace bench {
namespace {

std::string AnswerTo(const std::string& request, unsigned number = 0) {
    std::string text;
    FastAnswers(number).Append(request, text);
    return text;
}

TEST(FastAnswersTest, AQueryEndsWithFin) {
    EXPECT_EQ(AnswerTo("ID?"), "ACK ID\nID=PELLIX\nFIN ID\n");
    EXPECT_EQ(AnswerTo("MODE?"), "ACK MODE\nMODE=4\nFIN MODE\n");
    EXPECT_EQ(AnswerTo("DEVINFO?"),
              "ACK DEVINFO\nDEVINFO=[1,3,17,32,16,20,0,31249,20]\nFIN DEVINFO\n");
    EXPECT_EQ(AnswerTo("PDOUT?"), "ACK PDOUT\nPDOUT=[0,0]\nFIN PDOUT\n");
}

TEST(FastAnswersTest, EachMasterHasASerialNumberOfItsOwn) {
    EXPECT_EQ(AnswerTo("PARAM[19][0]?"),
              "ACK PARAM[19][0]\nPARAM[19][0]=[48,56,41]\nFIN PARAM[19][0]\n");
    EXPECT_EQ(AnswerTo("PARAM[21][0]?", 0),
              "ACK PARAM[21][0]\nPARAM[21][0]=[42,30,30]\nFIN PARAM[21][0]\n");
    EXPECT_EQ(AnswerTo("PARAM[21][0]?", 63),
              "ACK PARAM[21][0]\nPARAM[21][0]=[42,36,33]\nFIN PARAM[21][0]\n");
}

TEST(FastAnswersTest, AnyOtherParameterIsOneByte) {
    EXPECT_EQ(AnswerTo("PARAM[40][2]?"), "ACK PARAM[40][2]\nPARAM[40][2]=[1]\nFIN PARAM[40][2]\n");
}

TEST(FastAnswersTest, TheRestIsAcceptedWithoutAValue) {
    EXPECT_EQ(AnswerTo("PDOUT=[3,1]"), "ACK PDOUT\nFIN PDOUT\n");
    EXPECT_EQ(AnswerTo("PARAM[21][0]=[1]"), "ACK PARAM[21][0]\nFIN PARAM[21][0]\n");
    EXPECT_EQ(AnswerTo("OPERATE()"), "ACK OPERATE\nFIN OPERATE\n");
    EXPECT_EQ(AnswerTo("DOUTINFO?"), "ACK DOUTINFO\nFIN DOUTINFO\n");
}

TEST(FastAnswersTest, WhatIsNoRequestHasNoAnswer) {
    EXPECT_EQ(AnswerTo(""), "");
    EXPECT_EQ(AnswerTo("PDOUT"), "");
}

TEST(FastAnswersTest, AnswersAreAppended) {
    std::string text = "before\n";
    FastAnswers(0).Append("OPERATE()", text);
    EXPECT_EQ(text, "before\nACK OPERATE\nFIN OPERATE\n");
}

}  // namespace
}  // namespace bench
