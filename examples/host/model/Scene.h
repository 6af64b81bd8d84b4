#pragma once

#include "examples/host/model/ObjReader.h"

namespace host
{
/// A number of a shape that a person can change.
struct Parameter
{
    CXTString<wchar_t> m_name;
    float* m_value = nullptr; ///< lives as long as the shape
    float m_least = 0;
    float m_most = 1;
};

/// An object of a scene. The classes are those of the program and of its plug-ins. One thread at a time.
class Shape : public CXObject
{
public:
    X_DECLARE_CLASS(Shape)

    /// Overrides call it first, so that what every shape has comes first in its bytes.
    void Serialize(CXArchive& archive) override;
    virtual std::vector<Parameter> GetParameters() { return {}; }
    /// Safe on any thread, as long as no thread changes the shape.
    virtual std::shared_ptr<const Mesh> MakeMesh() const = 0;
    /// To be called when a parameter has got another value.
    void NoteChange();

    CXTString<wchar_t> m_name;
    CRGBColor m_color{200, 200, 200};
    /// As they were read, where this program's class does not know all of them: saved as they are until the shape changes.
    std::vector<unsigned char> m_bytes;
    bool m_losesNewer = false; ///< changed, so that saving loses what only a newer class knows
};

/// A shape that a person can insert: plug-ins derive from it.
class Primitive : public Shape
{
public:
    X_DECLARE_CLASS(Primitive)

protected:
    /// Reads or writes the values of GetParameters, the first `count` when loading. A value out of its range becomes the
    /// nearest one.
    void SerializeParameters(CXArchive& archive, std::size_t count);
};

/// A model that was read from a file.
class MeshShape : public Shape
{
public:
    X_DECLARE_CLASS(MeshShape)

    MeshShape() = default;
    explicit MeshShape(Mesh mesh) : m_mesh(std::make_shared<Mesh>(std::move(mesh))) {}
    void Serialize(CXArchive& archive) override;
    std::shared_ptr<const Mesh> MakeMesh() const override { return m_mesh; }

private:
    std::shared_ptr<const Mesh> m_mesh = std::make_shared<Mesh>();
};

/// A shape whose plug-in is not there, or whose bytes it could not read: m_bytes has them.
class KeptShape : public Shape
{
public:
    X_DECLARE_CLASS(KeptShape)

    std::shared_ptr<const Mesh> MakeMesh() const override { return std::make_shared<Mesh>(); }

    CXTString<char> m_className;
};

/// The shapes that are shown and saved together. In a file each stands in a block of its own, behind the name of its class:
/// a reader passes over what a newer class has added to it, and keeps such blocks and those of classes that it lacks.
class Scene : public CXObject
{
public:
    X_DECLARE_CLASS(Scene)

    void Serialize(CXArchive& archive) override;

    std::vector<std::unique_ptr<Shape>> m_shapes;
};

/// The file is the old one until the new one is complete. Throws what files and archives throw.
void SaveScene(const Scene& scene, const CPathString& path);
/// Throws what files and archives throw; archiveBadClass for a file that is no scene; CXUserException where it is ended.
std::unique_ptr<Scene> LoadScene(const CPathString& path, const Progress& progress = {});
} // namespace host
