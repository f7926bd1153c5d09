// main of the widget test suites: one QApplication for all tests, on Qt's offscreen platform unless the
// environment chose another (so the suites also run, and list their tests, without a display).
//
// Every test also fails when Qt reports that an exception reached its event loop: an event handler that
// lets an exception through is a crash in a user's hands, even where the test's own checks pass.
#include <QApplication>

#include <gtest/gtest.h>

namespace {

QtMessageHandler PreviousHandler = nullptr;

void FailOnEscapedException(QtMsgType type, const QMessageLogContext& context, const QString& message)
{
    if (message.contains(QLatin1String("caught an exception")))
        ADD_FAILURE() << "an exception reached Qt's event loop: " << message.toStdString();
    if (PreviousHandler)
        PreviousHandler(type, context, message);
}

}  // namespace

int main(int argc, char** argv)
{
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    PreviousHandler = qInstallMessageHandler(FailOnEscapedException);
    QApplication app(argc, argv);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
