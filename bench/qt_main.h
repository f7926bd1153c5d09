// The main of the benchmarks that draw or use widgets: Qt's offscreen platform unless one is chosen, an
// application object (text and widgets need one), then Google Benchmark. Setup runs before any timing,
// Teardown after the last benchmark while the application still exists.
#pragma once

#include <QApplication>
#include <benchmark/benchmark.h>

#include <functional>

inline int RunQtBenchmarks(int argc, char** argv, const std::function<void()>& Setup = {},
                           const std::function<void()>& Teardown = {})
{
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    if (Setup)
        Setup();
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    if (Teardown)
        Teardown();
    return 0;
}
