// A run that has an output directory to collect into.
#ifndef QUENDIL_TESTS_SUPPORT_COLLECT_FIXTURE_H
#define QUENDIL_TESTS_SUPPORT_COLLECT_FIXTURE_H

#include <string>

#include "child_fixture.h"
#include "collect/IGOutput.h"
#include "collect/IGSizeLimit.h"
#include "ini/IGIniCtrl.h"
#include "ini/IGIniTable.h"

class CollectTest : public ChildTest {
  protected:
    void SetUp() override {
        ChildTest::SetUp();
        collected_size = CollectedSize{};
        root_ = IgIniGetCmnRoot(pool());
        ASSERT_NE(root_, nullptr);
        base_ = own_.path("base");
        std::filesystem::create_directory(base_);
        root_->output_dir = base_.data();
        root_->output_name = name_.data();
        output_ = base_ + "/" + name_;
        std::filesystem::create_directory(output_);
        std::filesystem::permissions(output_, std::filesystem::perms::owner_all);
        ASSERT_TRUE(noteOutput(pool(), *root_, output_.c_str()));
        data_dir_ = output_;
        root_->d = data_dir_.data();
    }

    /// Collects into a directory of the output instead of the output itself.
    void useSubdirectory(const std::string& name) {
        data_dir_ = output_ + "/" + name;
        root_->d = data_dir_.data();
    }

    /// The index, its dates masked; empty when there is none.
    std::string index() const {
        return replaced(readText(output_ + "/quendil_index"), "DATE:[0-9]{12}", "DATE:STAMP");
    }

    root_tbl* root_ = nullptr;
    std::string base_;
    std::string output_;    // the output directory
    std::string data_dir_;  // where the pattern's data is collected

  private:
    TempDir own_{"/opt"};  // owned by root, as the installed data directory is
    std::string name_ = "host_250101000000";
};

#endif
