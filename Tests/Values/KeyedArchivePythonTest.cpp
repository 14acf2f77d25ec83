// Keyed archives against an archiver and an unarchiver written in Python on its plistlib.
#include "Support/PropertyLists.h"
#include "Support/Python.h"
#include "Values/KeyedArchive.h"

#include <gtest/gtest.h>

namespace moxel {
namespace {

using test::asBytes;
using test::asText;
using test::hasPython;
using test::runPython;
using test::SubprocessResult;

/// random_graph(seed) makes a graph, archive(graph) archives it, resolve(archive) reads an archive strictly.
const std::string library = R"(
import plistlib, random, sys, datetime
from plistlib import UID

def random_graph(seed):
    rng = random.Random(seed)
    shared = []
    def make(depth):
        if shared and rng.random() < 0.15:
            return rng.choice(shared)
        kind = rng.randrange(8 if depth < 6 else 6)
        if kind == 0: value = rng.choice([True, False])
        elif kind == 1: value = rng.choice([0, 1, -1, 255, 256, 65536, -2**63, 2**63 - 1, 2**64 - 1, rng.getrandbits(40)])
        elif kind == 2: value = rng.choice([0.0, 1.5, -1e300, 0.1, rng.random()])
        elif kind == 3: value = ''.join(rng.choice('abc \u00e9\u20ac\U0001F600"\\') for _ in range(rng.randrange(20)))
        elif kind == 4: value = bytes(rng.getrandbits(8) for _ in range(rng.randrange(30)))
        elif kind == 5: value = datetime.datetime(2001, 1, 1) + datetime.timedelta(seconds=rng.randrange(-10**9, 10**9))
        elif kind == 6: value = [make(depth + 1) for _ in range(rng.randrange(6))]
        else: value = {'key %d' % i: make(depth + 1) for i in range(rng.randrange(6))}
        if kind >= 6:
            shared.append(value)
        return value
    return [make(0) for _ in range(5)]

def archive(root):
    objects, classes, seen = ['$null'], {}, {}
    def class_of(name):
        if name not in classes:
            classes[name] = UID(len(objects))
            objects.append({'$classname': name, '$classes': [name, 'NSObject']})
        return classes[name]
    def add(value):
        if id(value) in seen:
            return seen[id(value)]
        uid = UID(len(objects))
        objects.append(value)
        if isinstance(value, list):
            seen[id(value)] = uid
            objects[uid.data] = {'NS.objects': [add(v) for v in value], '$class': class_of('NSArray')}
        elif isinstance(value, dict):
            seen[id(value)] = uid
            objects[uid.data] = {'NS.keys': [add(k) for k in value], 'NS.objects': [add(v) for v in value.values()],
                                 '$class': class_of('NSDictionary')}
        elif isinstance(value, datetime.datetime):
            seconds = (value - datetime.datetime(2001, 1, 1)).total_seconds()
            objects[uid.data] = {'NS.time': seconds, '$class': class_of('NSDate')}
        return uid
    top = add(root)
    return plistlib.dumps({'$archiver': 'NSKeyedArchiver', '$version': 100000, '$objects': objects,
                           '$top': {'root': top}}, fmt=plistlib.FMT_BINARY, sort_keys=False)

def resolve(data):
    root = plistlib.loads(data, fmt=plistlib.FMT_BINARY)
    assert list(root) == ['$version', '$archiver', '$top', '$objects'], list(root)
    assert root['$version'] == 100000 and root['$archiver'] == 'NSKeyedArchiver'
    assert list(root['$top']) == ['root']
    objects = root['$objects']
    assert objects[0] == '$null'
    used = {0}
    def get(uid):
        assert isinstance(uid, UID)
        value = objects[uid.data]
        used.add(uid.data)
        if not isinstance(value, dict):
            return value
        cls = objects[value['$class'].data]
        used.add(value['$class'].data)
        assert list(cls) == ['$classname', '$classes']
        name = cls['$classname']
        assert cls['$classes'] == [name, 'NSObject']
        if name == 'NSArray':
            assert list(value) == ['NS.objects', '$class']
            return [get(v) for v in value['NS.objects']]
        if name == 'NSDate':
            assert list(value) == ['NS.time', '$class'] and isinstance(value['NS.time'], float)
            return datetime.datetime(2001, 1, 1) + datetime.timedelta(seconds=value['NS.time'])
        assert name == 'NSDictionary'
        assert list(value) == ['NS.keys', 'NS.objects', '$class']
        keys = [get(k) for k in value['NS.keys']]
        return dict(zip(keys, [get(v) for v in value['NS.objects']], strict=True))
    result = get(root['$top']['root'])
    assert used == set(range(len(objects))), 'objects that nobody refers to'
    return result

def exact(value):
    if isinstance(value, list): return [exact(v) for v in value]
    if isinstance(value, dict): return [(k, exact(v)) for k, v in value.items()]
    return (type(value).__name__, value)
)";

class KeyedArchivePython : public ::testing::TestWithParam<int> {
  protected:
    void SetUp() override {
        if (!hasPython())
            GTEST_SKIP() << "the build found no python3";
    }

    [[nodiscard]] std::string seed() const { return std::to_string(GetParam()); }
};

TEST_P(KeyedArchivePython, ReadsWhatPythonArchives) {
    const SubprocessResult archive =
        runPython(library + "sys.stdout.buffer.write(archive(random_graph(int(sys.argv[1]))))", {}, {seed()});
    const SubprocessResult list =
        runPython(library + "sys.stdout.buffer.write(plistlib.dumps(random_graph(int(sys.argv[1])), "
                            "fmt=plistlib.FMT_BINARY, sort_keys=False))",
                  {}, {seed()});
    ASSERT_EQ(archive.exitCode, 0);
    ASSERT_EQ(list.exitCode, 0);
    const Result<Value> root = unarchiveObjectWithData(asBytes(archive.output));
    ASSERT_TRUE(root) << root.error().message;
    const Result<PropertyList> expected = readPropertyList(asBytes(list.output));
    ASSERT_TRUE(expected) << expected.error().message;
    EXPECT_EQ(*root, expected->root);
    EXPECT_EQ(root->description(), expected->root.description());
}

TEST_P(KeyedArchivePython, WritesWhatPythonReads) {
    const SubprocessResult original =
        runPython(library + "sys.stdout.buffer.write(archive(random_graph(int(sys.argv[1]))))", {}, {seed()});
    const Result<Value> root = unarchiveObjectWithData(asBytes(original.output));
    ASSERT_TRUE(root) << root.error().message;
    const Result<Data> archive = archivedDataWithRootObject(*root);
    ASSERT_TRUE(archive) << archive.error().message;
    const SubprocessResult check = runPython(library + "read = exact(resolve(sys.stdin.buffer.read()))\n"
                                                       "print(read == exact(random_graph(int(sys.argv[1]))))",
                                             asText(*archive), {seed()});
    EXPECT_EQ(check.exitCode, 0);
    EXPECT_EQ(check.output, "True\n");
}

INSTANTIATE_TEST_SUITE_P(Seeds, KeyedArchivePython, ::testing::Range(1, 9));

} // namespace
} // namespace moxel
