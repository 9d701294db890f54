// The anti-forgery token of zolhost's web server: a POST without it, or with a wrong one,
// changes nothing.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "testing/WebInstallation.h"

TEST(ZolhostWebToken, APostWithoutTheTokenOrWithAWrongOneIs403AndChangesNothing) {
  WebInstallation site;
  ASSERT_TRUE(site.Started());
  const auto idsBefore = site.MainPagePortIDs();
  ASSERT_FALSE(idsBefore.empty());
  const std::string token = site.Token();
  ASSERT_EQ(token.size(), 32u) << "at least 128 bits in hexadecimal";
  EXPECT_EQ(token.find_first_not_of("0123456789abcdef"), std::string::npos);
  std::string wrong = token;
  wrong[0] = wrong[0] == 'a' ? 'b' : 'a';
  for (const std::string& body : std::vector<std::string>{"porttype=2", "porttype=2&formtoken=", "porttype=2&formtoken=" + wrong,
                                  "porttype=2&formtoken=" + token.substr(0, 31), "porttype=2&formtoken=" + token + "0",
                                  "porttype=2&FormToken=" + token}) {
    const auto refused = site.PostForm("/zol/_server/index.html", body);
    ASSERT_TRUE(refused);
    EXPECT_EQ(refused->status, 403) << body;
  }
  // Neither in the query.
  const auto inQuery = site.PostForm("/zol/_server/index.html?formtoken=" + token, "porttype=2");
  ASSERT_TRUE(inQuery);
  EXPECT_EQ(inQuery->status, 403);
  // A delete without the token deletes nothing.
  const auto deleted = site.PostForm("/zol/_server/deleteport.html?ID=" + idsBefore.front(), "ID=" + idsBefore.front());
  ASSERT_TRUE(deleted);
  EXPECT_EQ(deleted->status, 403);
  EXPECT_EQ(site.MainPagePortIDs(), idsBefore);

  // With the token the same form is taken.
  const auto taken = site.PostForm("/zol/_server/index.html", "porttype=2&formtoken=" + token);
  ASSERT_TRUE(taken);
  EXPECT_EQ(taken->status, 301);
  EXPECT_EQ(site.MainPagePortIDs().size(), idsBefore.size() + 1);
  // Each start makes a new token.
  WebInstallation other;
  ASSERT_TRUE(other.Started());
  EXPECT_NE(other.Token(), token);
}
