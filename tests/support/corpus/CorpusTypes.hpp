// The three documents of the shared JSON corpus (twitter.json, citm_catalog.json,
// canada.json) declared as message types, member by member as the documents hold them,
// for the tests and benchmarks that read and write real documents both ways.
//
//   const corpus::CorpusTypes& types = corpus::corpusTypes();
//   types.twitter.registerWith(*serializer);           // "corpus/Twitter", read by name
//   types.featureCollection.registerWith(*serializer);  // "FeatureCollection", canada's
//                                                       // own root "type"
//
// Members the documents only ever hold as null (a tweet's "geo", "place", ...) are not
// declared: readers pass over them.
//
// Thread-safety: the declarations are built once, on first use, and then only read.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include <connector/json.hpp>

namespace corpus {

// twitter.json: a search result of tweets.
struct Hashtag {
  std::string text;
  std::vector<int> indices;
};
struct Url {
  std::string url;
  std::string expandedUrl;
  std::string displayUrl;
  std::vector<int> indices;
};
struct UserMention {
  std::string screenName;
  std::string name;
  std::int64_t id = 0;
  std::string idStr;
  std::vector<int> indices;
};
struct MediaSize {
  int w = 0;
  int h = 0;
  std::string resize;
};
struct MediaSizes {
  MediaSize medium;
  MediaSize small;
  MediaSize thumb;
  MediaSize large;
};
struct Media {
  std::int64_t id = 0;
  std::string idStr;
  std::vector<int> indices;
  std::string mediaUrl;
  std::string mediaUrlHttps;
  std::string url;
  std::string displayUrl;
  std::string expandedUrl;
  std::string type;
  MediaSizes sizes;
  std::optional<std::int64_t> sourceStatusId;
  std::optional<std::string> sourceStatusIdStr;
};
struct Entities {
  std::vector<Hashtag> hashtags;
  std::vector<Hashtag> symbols;
  std::vector<Url> urls;
  std::vector<UserMention> userMentions;
  std::optional<std::vector<Media>> media;
};
struct UrlList {
  std::vector<Url> urls;
};
struct UserEntities {
  std::optional<UrlList> url;
  UrlList description;
};
struct User {
  std::int64_t id = 0;
  std::string idStr;
  std::string name;
  std::string screenName;
  std::string location;
  std::string description;
  std::optional<std::string> url;
  UserEntities entities;
  bool isProtected = false;
  int followersCount = 0;
  int friendsCount = 0;
  int listedCount = 0;
  std::string createdAt;
  int favouritesCount = 0;
  std::optional<int> utcOffset;
  std::optional<std::string> timeZone;
  bool geoEnabled = false;
  bool verified = false;
  int statusesCount = 0;
  std::string lang;
  bool contributorsEnabled = false;
  bool isTranslator = false;
  bool isTranslationEnabled = false;
  std::string profileBackgroundColor;
  std::string profileBackgroundImageUrl;
  std::string profileBackgroundImageUrlHttps;
  bool profileBackgroundTile = false;
  std::string profileImageUrl;
  std::string profileImageUrlHttps;
  std::optional<std::string> profileBannerUrl;
  std::string profileLinkColor;
  std::string profileSidebarBorderColor;
  std::string profileSidebarFillColor;
  std::string profileTextColor;
  bool profileUseBackgroundImage = false;
  bool defaultProfile = false;
  bool defaultProfileImage = false;
  bool following = false;
  bool followRequestSent = false;
  bool notifications = false;
};
struct StatusMetadata {
  std::string resultType;
  std::string isoLanguageCode;
};
// What a tweet and the tweet it retweets have in common.
struct StatusFields {
  StatusMetadata metadata;
  std::string createdAt;
  std::int64_t id = 0;
  std::string idStr;
  std::string text;
  std::string source;
  bool truncated = false;
  std::optional<std::int64_t> inReplyToStatusId;
  std::optional<std::string> inReplyToStatusIdStr;
  std::optional<std::int64_t> inReplyToUserId;
  std::optional<std::string> inReplyToUserIdStr;
  std::optional<std::string> inReplyToScreenName;
  User user;
  int retweetCount = 0;
  int favoriteCount = 0;
  Entities entities;
  bool favorited = false;
  bool retweeted = false;
  std::optional<bool> possiblySensitive;
  std::string lang;
};
struct RetweetedStatus : StatusFields {};
struct Status : StatusFields {
  std::optional<RetweetedStatus> retweetedStatus;
};
struct SearchMetadata {
  double completedIn = 0;
  std::int64_t maxId = 0;
  std::string maxIdStr;
  std::string nextResults;
  std::string query;
  std::string refreshUrl;
  int count = 0;
  std::int64_t sinceId = 0;
  std::string sinceIdStr;
};
struct Twitter : connector::Message {
  std::vector<Status> statuses;
  SearchMetadata searchMetadata;
};

// citm_catalog.json: a catalogue of events and their performances.
struct CitmEvent {
  std::optional<std::string> description;
  std::int64_t id = 0;
  std::optional<std::string> logo;
  std::string name;
  std::vector<std::int64_t> subTopicIds;
  std::optional<std::string> subjectCode;
  std::optional<std::string> subtitle;
  std::vector<std::int64_t> topicIds;
};
struct CitmPrice {
  int amount = 0;
  std::int64_t audienceSubCategoryId = 0;
  std::int64_t seatCategoryId = 0;
};
struct CitmArea {
  std::int64_t areaId = 0;
  std::vector<std::int64_t> blockIds;
};
struct CitmSeatCategory {
  std::vector<CitmArea> areas;
  std::int64_t seatCategoryId = 0;
};
struct CitmPerformance {
  std::int64_t eventId = 0;
  std::int64_t id = 0;
  std::optional<std::string> logo;
  std::optional<std::string> name;
  std::vector<CitmPrice> prices;
  std::vector<CitmSeatCategory> seatCategories;
  std::optional<std::string> seatMapImage;
  std::int64_t start = 0;
  std::string venueCode;
};
struct CitmCatalog : connector::Message {
  std::map<std::string, std::string> areaNames;
  std::map<std::string, std::string> audienceSubCategoryNames;
  std::map<std::string, std::string> blockNames;
  std::map<std::string, CitmEvent> events;
  std::vector<CitmPerformance> performances;
  std::map<std::string, std::string> seatCategoryNames;
  std::map<std::string, std::string> subTopicNames;
  std::map<std::string, std::string> subjectNames;
  std::map<std::string, std::string> topicNames;
  std::map<std::string, std::vector<std::int64_t>> topicSubTopics;
  std::map<std::string, std::string> venueNames;
};

// canada.json: a GeoJSON feature collection of polygons.
struct Geometry {
  std::string type;
  std::vector<std::vector<std::vector<double>>> coordinates;
};
struct FeatureProperties {
  std::string name;
};
struct Feature {
  std::string type;
  FeatureProperties properties;
  Geometry geometry;
};
struct FeatureCollection : connector::Message {
  std::vector<Feature> features;
};

struct CorpusTypes {
  connector::json::MessageType<Twitter> twitter{"corpus/Twitter"};
  connector::json::MessageType<CitmCatalog> citmCatalog{"corpus/CitmCatalog"};
  connector::json::MessageType<FeatureCollection> featureCollection{"FeatureCollection"};
};

// The declarations, built on first use.
const CorpusTypes& corpusTypes();

}  // namespace corpus
