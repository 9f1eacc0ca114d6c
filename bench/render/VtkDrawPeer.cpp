// The peer of BM_DrawLitMillionTriangles: VTK 9 draws the same million
// triangles (positions, normals, one colour, its default head light) into an
// off-screen 1024x768 render window, frame by frame until the GPU is done.
// VTK as Debian builds it renders through X: run under Xvfb where there is no
// display (xvfb-run build/bench/tez_bench --benchmark_filter=LitMillion).

#include "mesh/IndexedMesh.h"

#include <benchmark/benchmark.h>

#include <vtkActor.h>
#include <vtkCamera.h>
#include <vtkCellArray.h>
#include <vtkFloatArray.h>
#include <vtkNew.h>
#include <vtkPointData.h>
#include <vtkPoints.h>
#include <vtkPolyData.h>
#include <vtkPolyDataMapper.h>
#include <vtkProperty.h>
#include <vtkRenderWindow.h>
#include <vtkRenderer.h>

#include <cstdlib>

namespace {

void BM_VtkDrawLitMillionTriangles(benchmark::State& state)
{
    if (!std::getenv("DISPLAY")) {
        state.SkipWithError("VTK's render window needs an X display (run under xvfb-run)");
        return;
    }
    TezRef<TezIndexedMesh> mesh = TezIndexedMesh::CreateSphere(500, 1000);
    vtkNew<vtkPoints> points;
    points->SetDataTypeToFloat();
    vtkNew<vtkFloatArray> normals;
    normals->SetNumberOfComponents(3);
    points->SetNumberOfPoints(static_cast<vtkIdType>(mesh->GetNumVertices()));
    normals->SetNumberOfTuples(static_cast<vtkIdType>(mesh->GetNumVertices()));
    for (size_t i = 0; i < mesh->GetNumVertices(); ++i) {
        TezMeshVertex const& v = mesh->GetVertex(i);
        points->SetPoint(static_cast<vtkIdType>(i), v.position.x, v.position.y, v.position.z);
        normals->SetTuple3(static_cast<vtkIdType>(i), v.normal.x, v.normal.y, v.normal.z);
    }
    vtkNew<vtkCellArray> triangles;
    for (size_t t = 0; t < mesh->GetNumTriangles(); ++t) {
        vtkIdType const ids[3] = {mesh->GetIndex(t, 0), mesh->GetIndex(t, 1), mesh->GetIndex(t, 2)};
        triangles->InsertNextCell(3, ids);
    }
    vtkNew<vtkPolyData> polyData;
    polyData->SetPoints(points);
    polyData->SetPolys(triangles);
    polyData->GetPointData()->SetNormals(normals);

    vtkNew<vtkPolyDataMapper> mapper;
    mapper->SetInputData(polyData);
    mapper->ScalarVisibilityOff();
    vtkNew<vtkActor> actor;
    actor->SetMapper(mapper);
    actor->GetProperty()->SetColor(0.8, 0.5, 0.3);
    vtkNew<vtkRenderer> renderer;
    renderer->AddActor(actor);
    renderer->SetBackground(0.2, 0.2, 0.25);
    renderer->GetActiveCamera()->SetPosition(0, 0, 4);
    renderer->GetActiveCamera()->SetFocalPoint(0, 0, 0);
    renderer->GetActiveCamera()->SetViewAngle(40);
    renderer->GetActiveCamera()->SetClippingRange(1, 10);
    vtkNew<vtkRenderWindow> window;
    window->SetOffScreenRendering(1);
    window->SetSize(1024, 768);
    window->AddRenderer(renderer);
    window->Render(); // the upload is not part of a frame
    window->WaitForCompletion();
    for (auto _ : state) {
        window->Render();
        window->WaitForCompletion();
    }
    state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(mesh->GetNumTriangles()));
    state.counters["fps"] = benchmark::Counter(static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
    state.SetLabel("VTK 9, off-screen render window");
}
BENCHMARK(BM_VtkDrawLitMillionTriangles)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(3.0);

} // namespace
