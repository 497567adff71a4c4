// The main of the test programs that need Qt's application object: event loops, deferred
// deletes, sockets and processes. One QCoreApplication for the whole program, made before the
// first test and gone after the last. Qt's debug channel is off, as a host has it: the plug-in
// dumps whole envelopes to it.

#include <QCoreApplication>
#include <QLoggingCategory>

#include <gtest/gtest.h>

int main(int argc, char **argv)
{
    ::testing::InitGoogleTest(&argc, argv);
    QCoreApplication application(argc, argv);
    QLoggingCategory::setFilterRules(QStringLiteral("default.debug=false"));
    return RUN_ALL_TESTS();
}
