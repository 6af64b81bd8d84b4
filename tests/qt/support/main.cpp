#include <QApplication>
#include <gmock/gmock.h>

// The tests share one application: a process can have one only.
int main(int argc, char** argv)
{
    testing::InitGoogleMock(&argc, argv);
    QApplication application(argc, argv);
    QApplication::setQuitOnLastWindowClosed(false);
    return RUN_ALL_TESTS();
}
